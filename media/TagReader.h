// The normal run mode: the walk over a tree, one record per file, its report
// and its rows.
#pragma once

#include "media/FileInfo.h"
#include "media/ProbeAhead.h"
#include "media/TagStore.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class Exception;
class MainArguments;

class TagReader : public Object {
public:
    using FileInfo = ZELd::FileInfo;

    // Opens the database connection when --database names a driver; a
    // connection that cannot be made throws, and no reader exists.
    explicit TagReader(const MainArguments& arguments);
    // The store deletes the connection, which ends it; nothing is committed here.
    ~TagReader() override = default;
    TagReader(const TagReader&) = delete;
    TagReader& operator=(const TagReader&) = delete;

    // Walks a directory and everything below it, depth first. The media
    // probes of the files that come next run ahead, in helper processes.
    void readDir(const String& path);
    // Handles one file: dir ends with "/" (or is empty), name is the file's name in it.
    void read(const String& dir, const String& name);
    // Reads the tags of the file at path into the record.
    void readTag(const String& path, FileInfo& info);
    // Writes the record's report to the output writer.
    void print(const FileInfo& file) const;
    // Writes the record's rows; a connection and an open transaction are expected.
    void persist(const FileInfo& file);

    const MainArguments& args() const { return arguments; }

private:
    // One transaction around persist: committed, or rolled back and reported;
    // tried again when another run took the file's ids.
    void persistInTransaction(const FileInfo& file);
    // Rolls the failed file back; rethrows, ending the walk, when the rollback
    // fails or when the output has (then the failure is reported or rethrown).
    void rollBack(Exception* failure);
    // The ID3V1 row, or the "Title is NULL" line when the tag has no title.
    void persistID3v1(const FileInfo& file);

    const MainArguments& arguments;
    TagStore store;     // the connection, the current directory (currentDir) and the last ids (dirId, fileId)
    String fileRule;    // 80 "=": opens each file's report
    String sectionRule; // 80 "-": opens each verbose section and each file's rows
    ProbeAhead probes_; // the media probes, made in helper processes
};

} // namespace ZELd
