#define ZEL_SOURCE "media/WalkAhead"
#include "media/WalkAhead.h"

#include <utility>

#include "media/Progress.h"
#include "media/Walk.h"
#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/FileName.h"

namespace ZELd {

namespace {
// Steps read ahead at most: files, and the places where the walk met
// something before its end; far more than the probes look ahead.
constexpr size_t kMostSteps = 256;
} // namespace

WalkAhead::WalkAhead(const String& path, size_t lookAhead, WalkObserver* observer, unsigned readers)
    : root_(path), lookAhead_(lookAhead), observer_(observer), dirsAhead_(readers)
{}

WalkAhead::~WalkAhead()
{
    for (Step& step : steps_)
        if (step.failure) step.failure->destroy();
    while (!open_.empty()) open_.pop_back(); // the innermost directory closes first
}

void WalkAhead::open(const String& path)
{
    std::string native = nativePath(path);
    if (native.empty() || native.back() != '/') native += '/';
    Dir::Listing listing;
    Dir* dir = dirsAhead_.take(native, listing) ? ZEL_NEW Dir(path, std::move(listing)) : ZEL_NEW Dir(path);
    OpenDir opened{std::unique_ptr<Dir>(dir), std::move(native)};
    dirsAhead_.entered(opened.native, *dir);
    open_.push_back(std::move(opened));
    if (observer_) observer_->entered(open_.back().dir->path());
}

bool WalkAhead::readOn()
{
    if (ended_) return false;
    Step step;
    std::wstring* before = ZELDebugCaptureReport(&step.traces);
    try {
        if (!started_) {
            started_ = true;
            open(root_);
        }
        Dir::Entry entry;
        while (!open_.empty()) {
            Dir& dir = *open_.back().dir;
            if (!dir.read(entry)) {
                if (observer_) observer_->left(dir.path(), true);
                open_.pop_back();
            } else if (!entry.isDir()) {
                WalkedFile& file = step.file;
                file.dir = dir.path();
                file.name = entry.name();
                file.path = open_.back().native + entry.nativeName();
                file.facts = dir.examine(entry);
                if (observer_) observer_->judge(file);
                break;
            } else if (walksInto(entry)) {
                open(dir.path() + entry.name());
            }
        }
    } catch (Exception* e) {
        step.failure = e; // the walk ends there
        for (; !open_.empty(); open_.pop_back())
            if (observer_) observer_->left(open_.back().dir->path(), false);
    }
    ZELDebugCaptureReport(before);
    ended_ = open_.empty();
    if (step.file.name.isEmpty() && !step.failure && step.traces.empty()) return false;
    steps_.push_back(std::move(step));
    return true;
}

bool WalkAhead::next()
{
    if (inHand_) steps_.pop_front();
    inHand_ = false;
    upcoming_.clear();
    for (;;) {
        if (steps_.empty() && !readOn()) return false;
        Step& step = steps_.front();
        if (!step.traces.empty()) ZELDebugReport(std::exchange(step.traces, std::wstring()));
        if (Exception* failure = std::exchange(step.failure, nullptr)) throw failure;
        if (toRead(step)) break;
        if (!step.file.name.isEmpty()) Progress::file(step.file.dir); // passed by: examined all the same
        steps_.pop_front();
    }
    inHand_ = true;
    // The files that come next, read as far as the look ahead asks.
    for (size_t i = 1; upcoming_.size() < lookAhead_; ++i) {
        if (i == steps_.size() && (steps_.size() >= kMostSteps || !readOn())) break;
        const Step& step = steps_[i];
        if (step.failure) break;
        if (toRead(step)) upcoming_.push_back(&step.file);
    }
    return true;
}

} // namespace ZELd
