// When another process opens and closes the files of one directory, as
// inotify tells it: a program that reads the files one after another spends
// on each the time from its first open to the first open of the next one.
// Unlike the lines of a buffered report, these events arrive as they happen.
#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace testsupport {

class OpenWatch {
public:
    using Clock = std::chrono::steady_clock;

    struct Event {
        std::string name;
        bool open; // else a close
        Clock::time_point at;
    };

    explicit OpenWatch(const std::string& dir)
        : inotify_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        ok_ = inotify_ >= 0 && wake_ >= 0 && ::inotify_add_watch(inotify_, dir.c_str(), IN_OPEN | IN_CLOSE) >= 0;
        if (ok_) thread_ = std::thread([this] { watch(); });
    }
    ~OpenWatch()
    {
        stop();
        if (inotify_ >= 0) ::close(inotify_);
        if (wake_ >= 0) ::close(wake_);
    }
    OpenWatch(const OpenWatch&) = delete;
    OpenWatch& operator=(const OpenWatch&) = delete;

    // False when the watch could not be set up.
    bool ok() const { return ok_; }
    // Ends the watch once the events so far are taken in; the results below
    // are complete only after it.
    void stop()
    {
        if (!thread_.joinable()) return;
        const uint64_t one = 1;
        (void)!::write(wake_, &one, sizeof one);
        thread_.join();
    }
    // The kernel dropped events: its queue was full.
    bool overflowed() const { return overflowed_; }
    const std::vector<Event>& events() const { return events_; }

private:
    void watch()
    {
        pollfd fds[2] = {{inotify_, POLLIN, 0}, {wake_, POLLIN, 0}};
        alignas(inotify_event) char buffer[64 * 1024];
        for (bool stopping = false;;) {
            if (!stopping && ::poll(fds, 2, -1) < 0) continue;
            if (fds[1].revents & POLLIN) stopping = true;
            const ssize_t n = ::read(inotify_, buffer, sizeof buffer);
            if (n <= 0) {
                if (stopping) return;
                continue;
            }
            const Clock::time_point now = Clock::now();
            for (ssize_t at = 0; at < n;) {
                const auto* e = reinterpret_cast<const inotify_event*>(buffer + at);
                if (e->mask & IN_Q_OVERFLOW) overflowed_ = true;
                if (e->len > 0 && !(e->mask & IN_ISDIR)) events_.push_back({e->name, (e->mask & IN_OPEN) != 0, now});
                at += static_cast<ssize_t>(sizeof(inotify_event) + e->len);
            }
        }
    }

    int inotify_;
    int wake_;
    bool ok_ = false;
    bool overflowed_ = false;
    std::vector<Event> events_;
    std::thread thread_;
};

// The time spent on each of the files, given in the order they are read:
// from the file's first open to the first open of the next file, and for the
// last file to its last close. A file never opened gets no time and is listed
// in `unopened`.
struct FileTimes {
    std::vector<double> seconds; // by the index of the file; -1: never opened
    std::vector<std::string> unopened;
};

inline FileTimes fileTimes(const OpenWatch& watch, const std::vector<std::string>& names)
{
    std::map<std::string, OpenWatch::Clock::time_point> firstOpen, lastClose;
    for (const OpenWatch::Event& e : watch.events()) {
        if (e.open) firstOpen.emplace(e.name, e.at);
        else lastClose[e.name] = e.at;
    }
    FileTimes times;
    times.seconds.assign(names.size(), -1);
    for (size_t i = 0; i < names.size(); ++i) {
        const auto start = firstOpen.find(names[i]);
        if (start == firstOpen.end()) {
            times.unopened.push_back(names[i]);
            continue;
        }
        OpenWatch::Clock::time_point end = start->second;
        size_t next = i + 1;
        while (next < names.size() && !firstOpen.count(names[next])) ++next;
        if (next < names.size()) end = firstOpen[names[next]];
        else if (lastClose.count(names[i])) end = lastClose[names[i]];
        times.seconds[i] = std::chrono::duration<double>(end - start->second).count();
    }
    return times;
}

} // namespace testsupport
