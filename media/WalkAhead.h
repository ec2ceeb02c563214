// The walk of the normal run, read ahead of the file in hand, so that the
// files that come next are known wherever they lie in the tree.
//
// The order is walkTree's (names in byte order, a subdirectory walked where
// it is met); the directories are read as the walk reaches them, a few files
// ahead of the caller. Each file is looked at once, as it is read: its
// WalkedFile holds the facts, and, in an update, the verdict of the
// observer. What the reading meets on the way is kept for the caller's turn:
// a trace (a link back up the tree that is skipped) is written to the debug
// report, and a failure (a directory that cannot be opened, which ends the
// walk) is thrown, when the caller reaches the place where the walk met it.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "media/DirsAhead.h"
#include "media/WalkedFile.h"
#include "zel/Dir.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class Exception;

// What learns of the directories and files as the walk reads them: an
// update of the catalogue, which judges each file.
class WalkObserver {
public:
    virtual ~WalkObserver() = default;
    // The walk opened the directory dir (ending with "/").
    virtual void entered(const String& dir) = 0;
    // A file of the directory entered last, looked at: its verdict.
    virtual void judge(WalkedFile& file) = 0;
    // The walk is done with dir: finished when it read it to its end, not
    // when the walk stopped inside it.
    virtual void left(const String& dir, bool finished) = 0;
};

class WalkAhead : public Object {
public:
    // lookAhead: how many files to read, at the least, after the one in hand
    // (files that the observer passes by do not count); readers: threads
    // that read the directories that come next (DirsAhead), none: each is
    // read when the walk enters it.
    WalkAhead(const String& path, size_t lookAhead, WalkObserver* observer = nullptr, unsigned readers = 0);
    ~WalkAhead() override;
    WalkAhead(const WalkAhead&) = delete;
    WalkAhead& operator=(const WalkAhead&) = delete;

    // Moves to the next file to read, reading ahead; false at the end. The
    // file stays valid until the next call.
    bool next();
    const WalkedFile& file() const { return steps_.front().file; }
    // The files to read after the one in hand, as far as the walk read
    // ahead, in walk order: none past a failure.
    const std::vector<const WalkedFile*>& upcoming() const { return upcoming_; }

private:
    struct Step {
        WalkedFile file; // an empty name: no file, only what the walk met there
        std::wstring traces;
        Exception* failure = nullptr;
    };
    struct OpenDir {
        std::unique_ptr<Dir> dir;
        std::string native; // its path as the system takes it
    };

    // Reads one more entry into the steps; false at the end of the walk.
    bool readOn();
    // Opens a directory of the walk.
    void open(const String& path);
    // Whether a step is a file to read.
    static bool toRead(const Step& step) { return !step.file.name.isEmpty() && step.file.verdict != WalkedFile::Verdict::Unchanged; }

    const String root_;
    const size_t lookAhead_;
    WalkObserver* const observer_;
    DirsAhead dirsAhead_;       // the directories that come next, read ahead
    std::vector<OpenDir> open_; // the directories being read, the innermost last
    std::deque<Step> steps_;    // the entry in hand first, then those read ahead
    std::vector<const WalkedFile*> upcoming_;
    bool started_ = false, ended_ = false;
    bool inHand_ = false; // steps_.front() was given by next()
};

} // namespace ZELd
