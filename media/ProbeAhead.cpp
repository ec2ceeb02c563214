#define ZEL_SOURCE "media/ProbeAhead"
#include "media/ProbeAhead.h"

#include <system_error>
#include <utility>

#include "media/MediaInfo.h"
#include "zel/Debug.h"
#include "zel/Dir.h"
#include "zel/Exception.h"
#include "zel/Files.h"
#include "zel/Process.h"

namespace ZELd {

namespace {

// Files in flight for each worker: enough that a worker never waits for the
// main thread to queue more, few enough that memory stays flat.
constexpr size_t kFilesPerWorker = 4;

FileStamp stampOf(const String& path)
{
    FileStamp stamp;
    try {
        stamp.size = Files::size(path);
        long long access, creation;
        stamp.known = Files::time(path, access, stamp.modification, creation);
    } catch (Exception* e) {
        e->destroy(); // the file's turn meets the same failure, or finds the file again
    }
    return stamp;
}

// A probe's failure that is never thrown is released here.
void release(std::exception_ptr failure)
{
    if (!failure) return;
    try {
        std::rethrow_exception(failure);
    } catch (Exception* e) {
        e->destroy();
    } catch (...) {
    }
}

} // namespace

struct ProbeAhead::Probe {
    explicit Probe(String path) : path(std::move(path)) {}
    ~Probe() { release(failure); }

    // On a worker: what the main thread would have got, traces included.
    void run()
    {
        std::wstring* before = ZELDebugCaptureReport(&traces);
        seen = stampOf(path);
        try {
            facts = MediaFacts::probe(path);
        } catch (...) {
            failure = std::current_exception();
        }
        ZELDebugCaptureReport(before);
    }

    const String path;
    bool done = false;
    FileStamp seen;
    MediaFacts facts;
    std::exception_ptr failure;
    std::wstring traces;
};

ProbeAhead::ProbeAhead(unsigned workers) : capacity_(kFilesPerWorker * workers)
{
    workers_.reserve(workers);
    try {
        for (unsigned i = 0; i < workers; ++i) workers_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        // Fewer workers than cores: the main thread probes what none of them takes.
    }
}

ProbeAhead::~ProbeAhead()
{
    {
        std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
    }
    queued_.notify_all();
    for (std::thread& worker : workers_) worker.join();
}

void ProbeAhead::work()
{
    ZELKeepTextLocale(); // a database client may change the process's locale under the walk
    MediaInfo::ThreadCopy library;
    std::unique_lock<std::mutex> lock(lock_);
    for (;;) {
        queued_.wait(lock, [this] { return stopping_ || started_ < window_.size(); });
        if (stopping_) return;
        Probe* probe = window_[started_++].get(); // stays in the window until it is done
        lock.unlock();
        probe->run();
        lock.lock();
        probe->done = true;
        done_.notify_all();
    }
}

void ProbeAhead::dropFront(std::unique_lock<std::mutex>& lock)
{
    if (started_ > 0) {
        done_.wait(lock, [this] { return window_.front()->done; });
        --started_;
    }
    window_.pop_front();
}

void ProbeAhead::turn(const Dir& dir, const String& name)
{
    const String path = dir.path() + name;
    std::unique_lock<std::mutex> lock(lock_);
    while (!window_.empty() && !(window_.front()->path == path)) dropFront(lock);
    // The window holds this file and those after it, in walk order, or nothing.
    size_t ahead = window_.empty() ? 0 : window_.size() - 1;
    String next;
    const size_t before = window_.size();
    while (window_.size() < capacity_ && dir.peekRegularFile(ahead, next)) {
        window_.push_back(std::make_unique<Probe>(dir.path() + next));
        ++ahead;
    }
    const bool added = window_.size() > before;
    lock.unlock();
    if (added) queued_.notify_all();
}

std::unique_ptr<ProbeAhead::Probe> ProbeAhead::takeFront(const String& path)
{
    std::unique_lock<std::mutex> lock(lock_);
    if (window_.empty() || !(window_.front()->path == path)) return nullptr;
    if (started_ == 0) { // no worker took it: the main thread probes it now
        window_.pop_front();
        return nullptr;
    }
    done_.wait(lock, [this] { return window_.front()->done; });
    --started_;
    std::unique_ptr<Probe> probe = std::move(window_.front());
    window_.pop_front();
    return probe;
}

MediaFacts ProbeAhead::take(const String& path, const FileStamp& now)
{
    std::unique_ptr<Probe> probe = takeFront(path);
    if (!probe || !probe->seen.matches(now)) return MediaFacts::probe(path);
    if (!probe->traces.empty()) ZELDebugReport(probe->traces);
    if (probe->failure) std::rethrow_exception(std::exchange(probe->failure, nullptr));
    return std::move(probe->facts);
}

} // namespace ZELd
