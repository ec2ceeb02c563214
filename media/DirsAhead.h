// The directories that the walk enters next, read by threads of the program
// ahead of the walk: where opening and reading a directory are round trips
// to a server (a network share), several directories are read at once
// instead of one after another.
//
// The walk tells each directory's subdirectories as it reads it; they are
// read in walk order (names in byte order, a subdirectory where it is met),
// the earliest first, while the directories read and not yet entered are
// few. A link to a directory is not followed ahead: the walk judges it where
// it meets it. A directory that cannot be read ahead is read by the walk,
// which meets the failure itself.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "zel/Dir.h"

namespace ZELd {

class DirsAhead {
public:
    // threads: how many directories are read at once; none: the walk reads
    // each one when it enters it.
    explicit DirsAhead(unsigned threads);
    // Ends the threads once their reads are done.
    ~DirsAhead();
    DirsAhead(const DirsAhead&) = delete;
    DirsAhead& operator=(const DirsAhead&) = delete;

    // The walk entered the directory dir, at path (native, ending with "/").
    void entered(const std::string& path, const Dir& dir);
    // The directory at path (native, ending with "/"), as it was read
    // ahead (waiting while it is read); false when it was not: the walk
    // reads it itself. The directories before it in walk order are no
    // longer waited for.
    bool take(const std::string& path, Dir::Listing& listing);

private:
    // Walk order: '/' before every other byte, so that a directory's
    // contents come before a sibling that its name begins.
    struct WalkOrder {
        bool operator()(const std::string& a, const std::string& b) const;
    };
    struct Entry {
        enum class State { Queued, Reading, Done } state = State::Queued;
        bool read = false;   // done and read
        bool passed = false; // the walk went past it while it was read
        Dir::Listing listing;
    };

    // A thread: reads the earliest queued directory while few are held.
    void work();

    std::mutex lock_;
    std::condition_variable queued_, done_;
    std::map<std::string, Entry, WalkOrder> dirs_;
    size_t held_ = 0; // directories read and not yet taken
    bool ending_ = false;
    std::vector<std::thread> threads_;
};

} // namespace ZELd
