// An update of the catalogue (--update): what it holds under the walked
// path, which files of the walk are new, changed or unchanged, and the
// records of the files that are gone.
//
// Files are matched by their path as stored (STOR_DIR.PATH + STOR_FILE.NAME,
// UTF-8, each byte of a name that is not UTF-8 as U+FFFD). A file is
// unchanged when it has one record with its size and modification time as
// this run would store them (the time's text, to the millisecond, local);
// it is changed when its size or time differs or when earlier runs stored it
// more than once; new when it has no record. A record whose file the walk did
// not meet is removed only when the directory that held it was read to its
// end, or, for a directory that is gone, when its nearest directory that is
// not gone was: a walk that stops early, or a PATH that cannot be read,
// removes nothing it did not see.
#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "media/TagStore.h"
#include "zel/String.h"

namespace ZELd {

class CatalogueUpdate {
public:
    // Reads the records of the files below the directory dir (ending with
    // "/"), or of the one file dir + name when name is not empty.
    CatalogueUpdate(TagStore& store, const String& dir, const String& name);

    // The walk meets a file: false when it is unchanged, and the run passes it by.
    bool wanted(const String& dir, const String& name);
    // The run reads a file that wanted let through: counts it as new or
    // changed, and gives the records it replaces.
    std::vector<RecordId> reading(const String& dir, const String& name);
    // After the walk: removes the records of the files that are gone, from
    // the directories read to their end (unless the run is dry: then it only
    // counts them); passed: the unchanged files the walk passed by.
    void finish(const std::vector<String>& finished, size_t passed, bool dryRun);
    // "Update: new[N] changed[N] unchanged[N] removed[N]"
    String summary() const;

private:
    // A path's records (a hundred thousand of them held at once: kept small).
    struct Entry {
        RecordId first;
        std::vector<RecordId> more; // records that earlier runs stored too
        uint64_t size = 0;          // the first record's
        long long modified = -1;
        bool met = false; // the walk met the file

        std::vector<RecordId> all() const;
    };

    // Whether the records of the stored directory dir may be removed: it, or
    // the nearest directory above it that the walk read, was read to its end.
    bool covered(const std::string& dir, const std::unordered_set<std::string>& done) const;

    TagStore& store_;
    std::string root_;                              // the walked directory as stored; empty for one file
    std::unordered_map<std::string, Entry> stored_; // by stored path
    size_t new_ = 0, changed_ = 0, unchanged_ = 0, removed_ = 0;
};

} // namespace ZELd
