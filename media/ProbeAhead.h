// The MediaInfo probes of the files that come next in a directory, made on
// worker threads while the main thread reads, prints and stores the file in
// hand.
//
// The main thread keeps the walk, the tags, the report and the rows, in walk
// order. At each file's turn it queues the regular files that follow in the
// same directory, as many as the window holds, and stops at the first entry
// that may not be a file (a subdirectory, a link, an unknown type), so that
// the queue is always in walk order. Workers take the queue from its front.
// A probe keeps everything it gives (facts, failure, traces) for the main
// thread, which uses it at the file's turn exactly where it would have made
// the probe itself: its traces go to the debug report there, its failure is
// thrown there. A file whose size or modification time changed since its
// probe is probed again at its turn; so is one whose probe had not started.
#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "media/MediaFacts.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class Dir;

// What the file system says of a file when it is probed, to tell whether it
// changed before its turn.
struct FileStamp {
    unsigned long long size = 0;
    long long modification = 0; // milliseconds
    bool known = false;         // false: the file could not be examined; matches nothing

    bool matches(const FileStamp& other) const
    {
        return known && other.known && size == other.size && modification == other.modification;
    }
};

class ProbeAhead : public Object {
public:
    // Starts the workers; the window holds a few files for each.
    explicit ProbeAhead(unsigned workers);
    // Waits for the probes under way, drops every result, ends the workers.
    ~ProbeAhead() override;
    ProbeAhead(const ProbeAhead&) = delete;
    ProbeAhead& operator=(const ProbeAhead&) = delete;

    // The walk has just read the file `name` from `dir`: drops the probes of
    // earlier files that were never taken (their tags failed), and queues the
    // regular files that follow it.
    void turn(const Dir& dir, const String& name);
    // The file's facts: its probe's, when it was probed ahead and still has
    // the size and modification time the probe saw; else a probe made now.
    MediaFacts take(const String& path, const FileStamp& now);

private:
    struct Probe;

    void work();
    // The front probe when it is the file's and has started (waiting until it
    // is done); else null, and a front probe that had not started is dropped.
    std::unique_ptr<Probe> takeFront(const String& path);
    void dropFront(std::unique_lock<std::mutex>& lock);

    const size_t capacity_;
    std::mutex lock_;
    std::condition_variable queued_; // a probe was queued, or the workers must stop
    std::condition_variable done_;   // a probe is done
    std::deque<std::unique_ptr<Probe>> window_;
    size_t started_ = 0; // probes at the front of the window that a worker took
    bool stopping_ = false;
    std::vector<std::thread> workers_;
};

} // namespace ZELd
