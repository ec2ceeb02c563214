#define ZEL_SOURCE "media/WalkAhead"
#include "media/WalkAhead.h"

#include <utility>

#include "media/Walk.h"
#include "zel/Debug.h"
#include "zel/Exception.h"

namespace ZELd {

namespace {
// Steps read ahead at most: files, and the places where the walk met
// something before its end; far more than the probes look ahead.
constexpr size_t kMostSteps = 256;
} // namespace

WalkAhead::WalkAhead(const String& path, Wanted wanted) : root_(path), wanted_(std::move(wanted)) {}

WalkAhead::~WalkAhead()
{
    for (Step& step : steps_)
        if (step.failure) step.failure->destroy();
    while (!open_.empty()) open_.pop_back(); // the innermost directory closes first
}

bool WalkAhead::readOn()
{
    if (ended_) return false;
    Step step;
    std::wstring* before = ZELDebugCaptureReport(&step.traces);
    try {
        if (!started_) {
            started_ = true;
            open_.push_back(std::unique_ptr<Dir>(ZEL_NEW Dir(root_)));
        }
        Dir::Entry entry;
        while (!open_.empty()) {
            Dir& dir = *open_.back();
            if (!dir.read(entry)) {
                step.finished.push_back(dir.path());
                open_.pop_back();
            } else if (!entry.isDir()) {
                step.dir = dir.path();
                step.name = entry.name();
                step.wanted = !wanted_ || wanted_(step.dir, step.name);
                break;
            } else if (walksInto(entry)) {
                open_.push_back(std::unique_ptr<Dir>(ZEL_NEW Dir(dir.path() + entry.name())));
            }
        }
    } catch (Exception* e) {
        step.failure = e; // the walk ends there
        while (!open_.empty()) open_.pop_back();
    }
    ZELDebugCaptureReport(before);
    ended_ = open_.empty();
    if (step.name.isEmpty() && !step.failure && step.traces.empty() && step.finished.empty()) return false;
    steps_.push_back(std::move(step));
    return true;
}

bool WalkAhead::next()
{
    if (inHand_) steps_.pop_front();
    inHand_ = false;
    for (;;) {
        if (steps_.empty() && !readOn()) return false;
        Step& step = steps_.front();
        if (!step.traces.empty()) ZELDebugReport(std::exchange(step.traces, std::wstring()));
        for (String& dir : step.finished) finished_.push_back(std::move(dir));
        step.finished.clear();
        if (Exception* failure = std::exchange(step.failure, nullptr)) throw failure;
        if (step.wanted && !step.name.isEmpty()) return inHand_ = true;
        if (!step.name.isEmpty()) ++passed_;
        steps_.pop_front();
    }
}

bool WalkAhead::upcoming(size_t ahead, String& path)
{
    for (size_t i = inHand_ ? 1 : 0, files = 0;; ++i) {
        if (i == steps_.size() && (steps_.size() >= kMostSteps || !readOn())) return false;
        const Step& step = steps_[i];
        if (step.failure) return false;
        if (step.name.isEmpty() || !step.wanted) continue;
        if (files++ == ahead) {
            path = step.dir + step.name;
            return true;
        }
    }
}

} // namespace ZELd
