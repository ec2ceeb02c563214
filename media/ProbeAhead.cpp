#define ZEL_SOURCE "media/ProbeAhead"
#include "media/ProbeAhead.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "zel/Debug.h"
#include "zel/Exception.h"

namespace ZELd {

namespace {

using Clock = ProbeHelper::Clock;
using std::chrono::milliseconds;

// Probes a helper has at once: the one under way and the next, so that it
// never waits for the program to hand it more.
constexpr size_t kProbesPerHelper = 2;
// Files in the window for each helper: enough to keep every helper busy
// while the program stores a file, few enough that memory stays flat.
constexpr size_t kWindowPerHelper = 4;

constexpr milliseconds kNoWait{0};
constexpr milliseconds kForever{-1};

} // namespace

ProbeAhead::ProbeAhead(unsigned helpers, milliseconds timeout)
    : capacity_(kWindowPerHelper * std::max(helpers, 1u)), timeout_(timeout), helpers_(std::max(helpers, 1u))
{}

ProbeAhead::~ProbeAhead() = default; // each helper is ended with its handle

void ProbeAhead::turn(const String& path, const Upcoming& upcoming)
{
    while (!window_.empty() && !(window_.front()->path == path)) window_.pop_front();
    if (window_.empty()) window_.push_back(std::make_shared<PendingProbe>(path));
    String next;
    for (size_t ahead = window_.size() - 1; window_.size() < capacity_ && upcoming(ahead, next); ++ahead)
        window_.push_back(std::make_shared<PendingProbe>(next));
    dispatch();
    collect(kNoWait);
}

MediaFacts ProbeAhead::take(const String& path, const FileStamp& now)
{
    Probe probe;
    if (!window_.empty() && window_.front()->path == path) {
        probe = std::move(window_.front());
        window_.pop_front();
    } else {
        probe = std::make_shared<PendingProbe>(path);
    }
    await(probe);
    if (!probe->result.final && !probe->result.seen.matches(now)) { // changed since, or never examined: probed now
        probe = std::make_shared<PendingProbe>(path);
        await(probe);
    }
    ProbeResult& result = probe->result;
    if (!result.traces.empty()) ZELDebugReport(result.traces);
    if (result.failed) throw result.failure(path);
    return std::move(result.facts);
}

void ProbeAhead::await(const Probe& probe)
{
    while (!probe->done) {
        if (!probe->sent) {
            ProbeHelper* helper = helperWithRoom(true);
            if (!helper) { // no helper at all: the probe is made here
                probe->result = ProbeResult::probe(probe->path);
                probe->done = true;
                return;
            }
            helper->send(probe);
        }
        dispatch();
        collect(kForever);
    }
}

void ProbeAhead::dispatch()
{
    for (const Probe& probe : window_) {
        if (probe->sent || probe->done) continue;
        ProbeHelper* helper = helperWithRoom(false);
        if (!helper) return;
        helper->send(probe);
    }
}

ProbeHelper* ProbeAhead::helperWithRoom(bool any)
{
    if (unavailable_) return nullptr;
    ProbeHelper* best = nullptr;
    for (std::unique_ptr<ProbeHelper>& helper : helpers_) {
        if (!helper) helper = ProbeHelper::start();
        if (helper && (!best || helper->queue().size() < best->queue().size())) best = helper.get();
    }
    if (!best) {
        unavailable_ = true;
        ZEL_TRACE(L"No MediaInfo helper can be started: files are probed in the program, without a deadline\n");
        return nullptr;
    }
    return any || best->queue().size() < kProbesPerHelper ? best : nullptr;
}

void ProbeAhead::collect(milliseconds wait)
{
    std::vector<pollfd> fds;
    std::vector<size_t> slots;
    const Clock::time_point now = Clock::now();
    for (size_t slot = 0; slot < helpers_.size(); ++slot) {
        const ProbeHelper* helper = helpers_[slot].get();
        if (!helper) continue;
        fds.push_back({helper->replies(), POLLIN, 0});
        slots.push_back(slot);
        if (timeout_.count() > 0 && !helper->queue().empty()) { // the deadline of its probe under way ends the wait
            const auto left = std::chrono::ceil<milliseconds>(helper->busySince() + timeout_ - now);
            wait = std::max(kNoWait, wait == kForever ? left : std::min(wait, left));
        }
    }
    if (fds.empty()) return;
    if (::poll(fds.data(), fds.size(), static_cast<int>(wait.count())) < 0 && errno != EINTR) return;
    for (size_t i = 0; i < fds.size(); ++i) {
        ProbeHelper* helper = helpers_[slots[i]].get();
        if (!fds[i].revents || helper->receive()) continue;
        if (helper->queue().empty()) helpers_[slots[i]].reset(); // gone while idle: nothing is lost
        else lose(slots[i], false);
    }
    if (timeout_.count() <= 0) return;
    for (size_t slot = 0; slot < helpers_.size(); ++slot) {
        const ProbeHelper* helper = helpers_[slot].get();
        if (helper && !helper->queue().empty() && Clock::now() >= helper->busySince() + timeout_) lose(slot, true);
    }
}

void ProbeAhead::lose(size_t slot, bool timedOut)
{
    std::deque<Probe> queue = helpers_[slot]->takeQueue();
    const String how = helpers_[slot]->end(true);
    helpers_[slot].reset();
    if (queue.empty()) return;
    queue.front()->result = ProbeResult::lost(timedOut ? String(L"MediaInfo Timeout") : L"MediaInfo Crashed (" + how + L")");
    queue.front()->done = true;
    // The others were never begun: the window or the file's turn hands them to another helper.
}

} // namespace ZELd
