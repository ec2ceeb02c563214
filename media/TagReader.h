// The normal run mode: the walk over a tree, one record per file, its report.
#pragma once

#include <cstdint>

#include "media/APEv2.h"
#include "media/ID3v1.h"
#include "media/ID3v2.h"
#include "zel/DateTime.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class MainArguments;
class SQLConnection;

class TagReader : public Object {
public:
    // What is gathered about one file.
    struct FileInfo {
        // dir ends with "/", so that dir + name is the full path; both must
        // outlive the record.
        FileInfo(const String& dir, const String& name) : dir(dir), name(name) {}
        FileInfo(const FileInfo&) = delete;
        FileInfo& operator=(const FileInfo&) = delete;

        const String& dir;
        const String& name;
        uint64_t size = 0;
        DateTime atime;
        DateTime mtime;
        DateTime ctime;
        String notes;  // the text of the failure that stopped reading tags or media facts
        String inform; // the media report
        String format;
        uint32_t width = 0;
        uint32_t height = 0;
        uint32_t duration = 0; // seconds
        ID3v1 id3v1;
        ID3v2 id3v2;
        APEv2 ape;
    };

    // Opens the database connection when --database names a driver; a
    // connection that cannot be made throws, and no reader exists.
    explicit TagReader(const MainArguments& arguments);
    // Deletes the connection, which ends it; nothing is committed here.
    ~TagReader() override;
    TagReader(const TagReader&) = delete;
    TagReader& operator=(const TagReader&) = delete;

    // Walks a directory and everything below it, depth first.
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
    // One transaction around persist: committed, or rolled back and reported.
    void store(const FileInfo& file);

    const MainArguments& arguments;
    SQLConnection* connection = nullptr;
    String currentDir; // the directory of the last STOR_DIR row written
    int32_t dirId = 0;  // the last ids handed out; 0: not yet read from the database
    int64_t fileId = 0;
    String fileRule;    // 80 "=": opens each file's report
    String sectionRule; // 80 "-": opens each verbose section
};

} // namespace ZELd
