#define ZEL_SOURCE "media/ProbeAhead"
#include "media/ProbeAhead.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "media/TagLibProperties.h"
#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/FileName.h"
#include "zel/Files.h"

namespace ZELd {

namespace {

using Clock = ProbeHelper::Clock;
using std::chrono::milliseconds;

// Probes a helper has at once: the one under way and the next few, so that
// it never waits for the program to hand it more, and, where it shares a
// core with the program, answers several before the program takes them.
constexpr size_t kProbesPerHelper = 8;
// Files in the window for each helper: enough to keep every helper busy
// while the program stores a file, few enough that memory stays flat.
constexpr size_t kWindowPerHelper = 16;

constexpr milliseconds kNoWait{0};
constexpr milliseconds kForever{-1};

} // namespace

ProbeAhead::ProbeAhead(unsigned helpers, milliseconds timeout, bool tagBytes, bool properties)
    : capacity_(kWindowPerHelper * std::max(helpers, 1u)), timeout_(timeout), tagBytes_(tagBytes), properties_(properties),
      helpers_(std::max(helpers, 1u))
{}

ProbeAhead::~ProbeAhead() = default; // each helper is ended with its handle

void ProbeAhead::turn(const WalkedFile& file, const std::vector<const WalkedFile*>& next)
{
    while (!window_.empty() && window_.front()->path() != file.path) window_.pop_front();
    if (window_.empty()) window_.push_back(probeOf(file));
    for (size_t ahead = window_.size() - 1; window_.size() < capacity_ && ahead < next.size(); ++ahead)
        window_.push_back(probeOf(*next[ahead]));
    dispatch();
    // Results that are there make room for the probes still waiting; when
    // none waits, they are taken at their files' turns.
    if (std::any_of(window_.begin(), window_.end(), [](const std::shared_ptr<Probe>& probe) { return probe->waiting(); })) collect(kNoWait);
}

std::shared_ptr<Probe> ProbeAhead::probeOf(const WalkedFile& file) const
{
    uint8_t asks = ProbeResult::kFactsOnly;
    if (tagBytes_ && file.name.toLowerCase().endsWith(L".mp3")) asks |= ProbeResult::kTagBytes;
    if (properties_ && TagLibProperties::readsName(file.name)) asks |= ProbeResult::kProperties;
    return std::make_shared<Probe>(file.path, asks);
}

MediaFacts ProbeAhead::take(const WalkedFile& file, FileFacts& facts, TagProperties* properties)
{
    std::shared_ptr<Probe> probe;
    if (!window_.empty() && window_.front()->path() == file.path) {
        probe = std::move(window_.front());
        window_.pop_front();
    } else {
        probe = probeOf(file);
    }
    await(probe);
    const FileStamp seen{facts.size, facts.modification, facts.known()};
    if (!probe->result().final && !probe->result().seen.matches(seen)) { // changed since, or never examined: looked at and probed now
        facts = Files::examine(AT_FDCWD, file.path.c_str());
        probe = probeOf(file);
        await(probe);
    }
    ProbeResult& result = probe->result();
    if (!result.traces.empty()) ZELDebugReport(result.traces);
    if (properties) *properties = std::move(result.properties);
    if (!result.propertiesFailure.isEmpty()) throw ZEL_NEW IOException(file.fullPath(), result.propertiesFailure);
    if (result.failed) throw result.failure(file.fullPath());
    return std::move(result.facts);
}

std::unique_ptr<File> ProbeAhead::tagBytes(const WalkedFile& file)
{
    if (window_.empty() || window_.front()->path() != file.path || !window_.front()->wantsTagBytes()) return nullptr;
    const std::shared_ptr<Probe> probe = window_.front();
    await(probe);
    ProbeResult& result = probe->result();
    const File::Ahead& bytes = result.tagBytes;
    if (!result.hasTagBytes || bytes.size != file.facts.size || bytes.modification != file.facts.modification) return nullptr;
    result.hasTagBytes = false;
    return std::unique_ptr<File>(ZEL_NEW File(file.fullPath(), std::move(result.tagBytes)));
}

void ProbeAhead::await(const std::shared_ptr<Probe>& probe)
{
    while (!probe->done()) {
        if (probe->waiting()) {
            ProbeHelper* helper = helperWithRoom(true);
            if (!helper) { // no helper at all: the probe is made here
                probe->finish(ProbeResult::probe(fromNativePath(probe->path().data(), probe->path().size()), probe->asks()));
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
    for (const std::shared_ptr<Probe>& probe : window_) {
        if (!probe->waiting()) continue;
        ProbeHelper* helper = helperWithRoom(false);
        if (!helper) break;
        helper->send(probe);
    }
    for (const std::unique_ptr<ProbeHelper>& helper : helpers_)
        if (helper) helper->flush();
}

ProbeHelper* ProbeAhead::helperWithRoom(bool any)
{
    if (unavailable_) return nullptr;
    ProbeHelper* best = nullptr;
    for (std::unique_ptr<ProbeHelper>& helper : helpers_) {
        if (!helper) helper = ProbeHelper::start(timeout_);
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
        if (!helper->queue().empty() && helper->queue().front()->hasDeadline()) { // the deadline of its probe under way ends the wait
            const auto left = std::chrono::ceil<milliseconds>(helper->queue().front()->deadline() - now);
            wait = std::max(kNoWait, wait == kForever ? left : std::min(wait, left));
        }
    }
    if (fds.empty()) return;
    if (::poll(fds.data(), fds.size(), static_cast<int>(wait.count())) < 0 && errno != EINTR) return;
    for (size_t i = 0; i < fds.size(); ++i)
        if (fds[i].revents) receiveFrom(slots[i]);
    loseOverdue();
}

void ProbeAhead::receiveFrom(size_t slot)
{
    if (helpers_[slot]->receive()) return;
    if (helpers_[slot]->queue().empty()) helpers_[slot].reset(); // gone while idle: nothing is lost
    else lose(slot, false);
}

void ProbeAhead::loseOverdue()
{
    for (size_t slot = 0; slot < helpers_.size(); ++slot) {
        const ProbeHelper* helper = helpers_[slot].get();
        if (helper && !helper->queue().empty() && helper->queue().front()->overdue(Clock::now())) lose(slot, true);
    }
}

void ProbeAhead::lose(size_t slot, bool timedOut)
{
    std::deque<std::shared_ptr<Probe>> queue = helpers_[slot]->takeQueue();
    const String how = helpers_[slot]->end(true);
    helpers_[slot].reset();
    if (queue.empty()) return;
    queue.front()->lose(timedOut ? String(L"MediaInfo Timeout") : L"MediaInfo Crashed (" + how + L")");
    // The others were never begun: the window or the file's turn hands them to another helper.
    for (size_t i = 1; i < queue.size(); ++i) queue[i]->requeue();
}

} // namespace ZELd
