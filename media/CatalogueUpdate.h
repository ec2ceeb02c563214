// An update of the catalogue (--update): which files of the walk are new,
// changed or unchanged, judged as the walk reads them, and the records of the
// files that are gone.
//
// Files are matched by their path as stored (STOR_DIR.PATH + STOR_FILE.NAME,
// UTF-8, each byte of a name that is not UTF-8 as U+FFFD). A file is
// unchanged when it has one record with its size and modification time as
// this run would store them (the time's text, to the millisecond, local);
// it is changed when its size or time differs, when earlier runs stored it
// more than once, or when this run made TAG_PROPERTY in a catalogue that held
// the other tables (its properties were never stored); new when it has no
// record. A record whose file the walk did
// not meet is removed only when the directory that held it was read to its
// end, or, for a directory that is gone, when a directory above it was: a
// walk that stops early, or a PATH that cannot be read, removes nothing it
// did not see.
//
// What it holds: the directory rows stored under the walked path (a path and
// an id each), and the records of the directories that the walk is in, read
// as the walk enters each one and let go as it leaves it.
#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "media/WalkAhead.h"
#include "zel/String.h"

namespace ZELd {

class Catalogue;

class CatalogueUpdate : public WalkObserver {
public:
    // Of the files below the directory dir (ending with "/"), or of the one
    // file dir + name when name is not empty.
    CatalogueUpdate(Catalogue& catalogue, const String& dir, const String& name);

    void entered(const String& dir) override;
    void judge(WalkedFile& file) override;
    void left(const String& dir, bool finished) override;
    // After the walk: removes the records of the files that are gone
    // (unless the run is dry: then it only counts them).
    void finish(bool dryRun);
    // "Update: new[N] changed[N] unchanged[N] removed[N]"
    String summary() const;

private:
    // A stored name's records.
    struct Entry {
        RecordId first;
        std::vector<RecordId> more; // records that earlier runs stored too
        uint64_t size = 0;          // the first record's
        long long modified = -1;
        bool met = false; // the walk met the file

        std::vector<RecordId> all() const;
    };
    using Records = std::unordered_map<std::string, Entry>; // by stored name
    struct OpenDirectory {
        std::string dir; // as stored
        Records records;
    };

    // The records of the files of a stored directory, from each of its rows.
    Records recordsOf(const std::string& dir) const;
    // Whether the records of the stored directory dir may be removed: a
    // directory above it was read to its end.
    bool covered(const std::string& dir) const;

    Catalogue& catalogue_;
    std::string root_;                                           // the walked directory as stored; empty for one file
    std::unordered_map<std::string, std::vector<int32_t>> rows_; // the stored directories' rows, by path
    std::vector<OpenDirectory> open_;                            // the directories the walk is in, the innermost last
    std::unordered_set<std::string> entered_, finished_;         // as stored
    std::vector<std::vector<RecordId>> gone_;                    // the records of each file that is gone
    size_t new_ = 0, changed_ = 0, unchanged_ = 0, removed_ = 0;
};

} // namespace ZELd
