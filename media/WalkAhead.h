// The walk of the normal run, read ahead of the file in hand, so that the
// files that come next are known wherever they lie in the tree.
//
// The order is walkTree's (names in byte order, a subdirectory walked where
// it is met); the directories are read as the walk reaches them, a few
// entries ahead of the caller. What the reading meets on the way is kept for
// the caller's turn: a trace (a link back up the tree that is skipped) is
// written to the debug report, and a failure (a directory that cannot be
// opened, which ends the walk) is thrown, when the caller reaches the place
// where the walk met it.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "zel/Dir.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class Exception;

class WalkAhead : public Object {
public:
    // Whether the walk stops at a file (dir ends with "/"); null: at every file.
    using Wanted = std::function<bool(const String& dir, const String& name)>;

    explicit WalkAhead(const String& path, Wanted wanted = nullptr);
    ~WalkAhead() override;
    WalkAhead(const WalkAhead&) = delete;
    WalkAhead& operator=(const WalkAhead&) = delete;

    // Moves to the next entry that is not a directory: its directory (ending
    // with "/") and name stay valid until the next call. False at the end.
    bool next();
    const String& dir() const { return steps_.front().dir; }
    const String& name() const { return steps_.front().name; }
    // The path of the file that comes `ahead` files after the one in hand
    // (0: the next one), reading on when it is not known yet; false past the
    // end, past a failure, or beyond the entries it may read ahead.
    bool upcoming(size_t ahead, String& path);
    // The files the walk passed because they were not wanted, up to the one in hand.
    size_t passed() const { return passed_; }
    // The directories (paths ending with "/") read to their end, up to the
    // file in hand; after the end of the walk, every one it read.
    const std::vector<String>& finished() const { return finished_; }

private:
    struct Step {
        String dir, name; // an empty name: no file, only what the walk met there
        bool wanted = true;
        std::wstring traces;
        std::vector<String> finished; // the directories read to their end just before
        Exception* failure = nullptr;
    };

    // Reads one more entry into the steps; false at the end of the walk.
    bool readOn();

    const String root_;
    const Wanted wanted_;
    std::vector<std::unique_ptr<Dir>> open_; // the directories being read, the innermost last
    std::deque<Step> steps_;                 // the entry in hand first, then those read ahead
    bool started_ = false, ended_ = false;
    bool inHand_ = false; // steps_.front() was given by next()
    size_t passed_ = 0;
    std::vector<String> finished_;
};

} // namespace ZELd
