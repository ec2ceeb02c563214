// The tag bytes of the MP3 files that come next in walk order, read by
// threads of the program while it works on the file in hand. Where every
// open and read is a round trip to a server (a network share), the round
// trips of many files then overlap instead of following each other.
//
// Each file is opened and read from its start and before its end as far as
// its tags reach: the ends that TagLocation looks at, an ID3v2 or APE tag at
// the start whole, an APE tag that ends the file whole, within a bound on
// the bytes held at once. At its turn the program reads the file from those
// bytes (File::Ahead) and what lies beyond them from the file. A file that
// could not be opened or read ahead is opened at its turn, as it is without
// reading ahead, and fails there the same way; so is one whose size or
// modification time is no longer what the walk found.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "media/WalkedFile.h"
#include "zel/File.h"

namespace ZELd {

class TagBytesAhead {
public:
    // threads: how many files are read at once; none: nothing is read ahead.
    explicit TagBytesAhead(unsigned threads);
    // Ends the threads once their reads are done.
    ~TagBytesAhead();
    TagBytesAhead(const TagBytesAhead&) = delete;
    TagBytesAhead& operator=(const TagBytesAhead&) = delete;

    // How many files it reads ahead of the one in hand.
    size_t lookAhead() const { return capacity_ == 0 ? 0 : capacity_ - 1; }
    // The walk is at `file`, and `next` come after it, in walk order: drops
    // what was read of earlier files and never taken, and reads the MP3
    // files that follow.
    void turn(const WalkedFile& file, const std::vector<const WalkedFile*>& next);
    // The file, opened and read ahead (waiting for its read when under
    // way); null when it was not, or changed since the walk looked at it.
    std::unique_ptr<File> take(const WalkedFile& file);

    // Opens the file at path and reads its tag bytes ahead; false when it
    // cannot be opened or read.
    static bool read(const std::string& path, File::Ahead& ahead);

private:
    struct Entry {
        enum class State { Queued, Reading, Done, Dropped };
        std::string path;
        bool mp3 = false;
        State state = State::Queued;
        bool kept = false; // done, and opened and read
        File::Ahead ahead;
    };

    // A thread: reads the first queued file while the bytes held allow.
    void work();
    // Forgets an entry of the window; under the lock.
    void drop(Entry& entry);

    const size_t capacity_; // files in the window
    std::mutex lock_;
    std::condition_variable queued_; // a file to read, or the end
    std::condition_variable read_;   // a file was read
    std::deque<std::shared_ptr<Entry>> window_;
    size_t held_ = 0; // bytes of the files read and not yet taken
    bool ending_ = false;
    std::vector<std::thread> threads_;
};

} // namespace ZELd
