// The report of the normal run: every line written about one file, its block
// (the record) and the lines of its rows as they go out to the catalogue, and
// the error line of an ID3v1 tag without a title.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/FileInfo.h"
#include "zel/String.h"

namespace ZELd {

class Writer;

class FileReport {
public:
    // out takes the report, errout the line of a tag kept out of the catalogue.
    FileReport(Writer& out, Writer& errout, bool verbose);

    // The record's block: the file's place, tags, size and time, failure and
    // media facts; with verbose every tag section, the tags' properties
    // (--all-formats) and the media report.
    void print(const FileInfo& file) const;

    // The lines of a file's rows, each written as its row goes out. The rule
    // opens them; the tag rows have lines only with verbose.
    void rowsBegin() const;
    void dirRow(int32_t dirId, const String& dir) const;
    void fileRow(int64_t fileId, const String& name) const;
    void id3v1Row() const;
    void id3v2Rows(size_t frames) const;
    void apeRows(size_t items) const;
    void propertyRows(size_t properties) const;
    // An ID3v1 tag without a title, which gets no row.
    void untitled(const FileInfo& file) const;

private:
    Writer& out_;
    Writer& errout_;
    const bool verbose_;
    const String fileRule;    // 80 "=": opens each file's block
    const String sectionRule; // 80 "-": opens each verbose section and each file's rows
};

} // namespace ZELd
