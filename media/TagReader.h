// The normal run mode: the walk over a tree, one record per file, its report
// and its rows.
#pragma once

#include <vector>

#include "media/Catalogue.h"
#include "media/FileInfo.h"
#include "media/FileReport.h"
#include "media/FilesInFlight.h"
#include "media/ProbeAhead.h"
#include "media/WalkedFile.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class CatalogueUpdate;
class Exception;
class File;
class MainArguments;
class WalkAhead;

class TagReader : public Object {
public:
    using FileInfo = ZELd::FileInfo;

    // Opens the database connection when --database names a driver; a
    // connection that cannot be made throws, and no reader exists.
    explicit TagReader(const MainArguments& arguments);
    // The catalogue deletes the connection, which ends it; nothing is committed here.
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
    // Handles one file of the walk: its record, report and rows.
    void read(const WalkedFile& file);
    // Reads the tags of the file at path into the record.
    void readTag(const String& path, FileInfo& info);
    // The same, of a file opened (and read ahead) before.
    void readTag(File& file, FileInfo& info);
    // Writes the record's report to the output writer.
    void print(const FileInfo& file) const;
    // Hands the record to the catalogue, which stores it in one transaction
    // (unless the run is dry or has no database), in place of the records it
    // replaces.
    void persist(const FileInfo& file, const std::vector<RecordId>& replaced = {});

    const MainArguments& args() const { return arguments; }

private:
    // Reads every file the walk stops at; returns what stopped the walk
    // itself (a directory that cannot be opened), null at its end.
    Exception* walkFiles(WalkAhead& walk);
    // A file failed with `failure`: when the tree's root is no longer the
    // directory the walk began in (a share whose server went away leaves
    // an empty mount point, or nothing), ends the run in its place
    // ("Tree Unreachable"), before the file is stored.
    void checkTreeAfter(Exception* failure) const;
    // Removes what is gone and prints the update's line.
    void endUpdate(CatalogueUpdate& update);

    const MainArguments& arguments;
    FileReport report;             // every line about a file
    Catalogue catalogue;           // the connection, the tables, the ids, a file's transaction
    const FilesInFlight inFlight_; // how many files are read at once
    ProbeAhead probes_;            // the media probes, made in helper processes
    String root_;                  // the tree being walked, and what it was when the walk began
    FileFacts rootFacts_;
};

} // namespace ZELd
