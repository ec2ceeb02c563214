// The normal run mode: the walk over a tree, one record per file, its report
// and its rows.
#pragma once

#include "media/CatalogueUpdate.h"
#include "media/FileInfo.h"
#include "media/ProbeAhead.h"
#include "media/TagStore.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class Exception;
class MainArguments;
class WalkAhead;

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
    // With --update, only new and changed files are read, and the records
    // of files that are gone are removed (see CatalogueUpdate).
    void readDir(const String& path);
    // Handles PATH when it is one file: read, or, with --update, read when
    // it is new or changed.
    void readFile(const String& dir, const String& name);
    // Handles one file: dir ends with "/" (or is empty), name is the file's name in it.
    void read(const String& dir, const String& name);
    // Reads the tags of the file at path into the record.
    void readTag(const String& path, FileInfo& info);
    // Writes the record's report to the output writer.
    void print(const FileInfo& file) const;
    // Hands the record to the store, which stores it in one transaction
    // (unless the run is dry or has no database), in place of the records it
    // replaces.
    void persist(const FileInfo& file, const std::vector<RecordId>& replaced = {});

    const MainArguments& args() const { return arguments; }

private:
    // Reads every file the walk stops at; returns what stopped the walk
    // itself (a directory that cannot be opened), null at its end.
    Exception* walkFiles(WalkAhead& walk);
    // Removes what is gone and prints the update's line.
    void endUpdate(CatalogueUpdate& update, const std::vector<String>& finished, size_t passed);

    const MainArguments& arguments;
    String fileRule;                    // 80 "=": opens each file's report
    String sectionRule;                 // 80 "-": opens each verbose section and each file's rows
    TagStore store;                     // the connection, the current directory (currentDir) and the last ids (dirId, fileId)
    ProbeAhead probes_;                 // the media probes, made in helper processes
    CatalogueUpdate* update_ = nullptr; // during an update's walk
};

} // namespace ZELd
