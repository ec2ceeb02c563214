#define ZEL_SOURCE "media/Progress"
#include "media/Progress.h"

#include <unistd.h>

#include "zel/Writer.h"

namespace ZELd {

namespace {

Progress* gShown = nullptr;                    // the status being shown, if any
constexpr long kRedrawNanoseconds = 100000000; // ten times a second at most

// A clock that the C library reads without a system call.
timespec now()
{
    timespec t{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &t);
    return t;
}

long long nanosecondsBetween(const timespec& from, const timespec& to)
{
    return (to.tv_sec - from.tv_sec) * 1000000000LL + (to.tv_nsec - from.tv_nsec);
}

} // namespace

Progress::Progress(FileWriter& errout) : errout_(errout), line_(STDERR_FILENO)
{
    if (!::isatty(STDERR_FILENO) || ::isatty(STDOUT_FILENO)) return;
    start_ = now();
    drawn_ = {start_.tv_sec - 1, start_.tv_nsec}; // the first file is shown at once
    errout_.shareWith(&line_);
    gShown = this;
}

Progress::~Progress()
{
    if (gShown != this) return;
    gShown = nullptr;
    errout_.shareWith(nullptr);
    line_.erase();
}

void Progress::file(const String& dir)
{
    if (gShown) gShown->count(dir);
}

void Progress::count(const String& dir)
{
    ++files_;
    const timespec at = now();
    if (nanosecondsBetween(drawn_, at) < kRedrawNanoseconds) return;
    drawn_ = at;
    const long long elapsed = nanosecondsBetween(start_, at);
    const unsigned long long rate = elapsed > 0 ? files_ * 1000000000ULL / static_cast<unsigned long long>(elapsed) : 0;
    const String counts = String::format(L"%llu files, %llu/s  ", files_, rate);
    // The directory's end is what tells where the walk is: its start gives way.
    const int room = line_.columns() - 1 - columnsOf(counts.str());
    std::wstring where = dir.str();
    if (room > 0 && columnsOf(where) > room) {
        while (!where.empty() && columnsOf(where) > room - 1) where.erase(0, 1);
        where.insert(0, 1, L'\x2026');
    }
    line_.show(counts.str() + where);
}

} // namespace ZELd
