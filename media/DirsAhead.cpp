#define ZEL_SOURCE "media/DirsAhead"
#include "media/DirsAhead.h"

#include <algorithm>

namespace ZELd {

namespace {
// Directories read and not yet entered, at most: enough to keep every
// thread busy across an artist's albums, few enough to hold little.
constexpr size_t kMostHeld = 64;
} // namespace

bool DirsAhead::WalkOrder::operator()(const std::string& a, const std::string& b) const
{
    auto rank = [](char c) { return c == '/' ? 0 : static_cast<unsigned char>(c) + 1; };
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) { return rank(x) < rank(y); });
}

DirsAhead::DirsAhead(unsigned threads)
{
    for (unsigned i = 0; i < threads; ++i) threads_.emplace_back([this] { work(); });
}

DirsAhead::~DirsAhead()
{
    {
        std::lock_guard<std::mutex> hold(lock_);
        ending_ = true;
    }
    queued_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

void DirsAhead::entered(const std::string& path, const Dir& dir)
{
    if (threads_.empty()) return;
    const std::vector<std::string> subdirectories = dir.subdirectories();
    {
        std::lock_guard<std::mutex> hold(lock_);
        for (const std::string& name : subdirectories) dirs_.try_emplace(path + name + "/");
    }
    queued_.notify_all();
}

bool DirsAhead::take(const std::string& path, Dir::Listing& listing)
{
    if (threads_.empty()) return false;
    std::unique_lock<std::mutex> hold(lock_);
    // Those before it are passed by: the walk went elsewhere.
    for (auto it = dirs_.begin(); it != dirs_.end() && WalkOrder()(it->first, path);) {
        if (it->second.state == Entry::State::Reading) {
            it->second.passed = true; // its thread drops it
            ++it;
            continue;
        }
        if (it->second.read) --held_;
        it = dirs_.erase(it);
    }
    auto it = dirs_.find(path);
    if (it == dirs_.end()) return false;
    done_.wait(hold, [&] { return it->second.state != Entry::State::Reading; });
    const bool read = it->second.read;
    if (read) listing = std::move(it->second.listing), --held_;
    dirs_.erase(it);
    hold.unlock();
    queued_.notify_all(); // room for one more
    return read;
}

void DirsAhead::work()
{
    std::unique_lock<std::mutex> hold(lock_);
    for (;;) {
        std::map<std::string, Entry, WalkOrder>::iterator next;
        queued_.wait(hold, [&] {
            if (ending_) return true;
            if (held_ >= kMostHeld) return false;
            next = std::find_if(dirs_.begin(), dirs_.end(), [](const auto& d) { return d.second.state == Entry::State::Queued; });
            return next != dirs_.end();
        });
        if (ending_) return;
        const std::string path = next->first;
        next->second.state = Entry::State::Reading;
        hold.unlock();
        Dir::Listing listing;
        const bool read = listing.read(path.c_str());
        const std::vector<std::string> subdirectories = read ? listing.subdirectories() : std::vector<std::string>();
        hold.lock();
        Entry& entry = dirs_.at(path); // no one erases an entry under way
        entry.state = Entry::State::Done;
        entry.read = read;
        if (entry.passed) {
            dirs_.erase(path);
        } else if (read) {
            entry.listing = std::move(listing);
            ++held_;
            for (const std::string& name : subdirectories) dirs_.try_emplace(path + name + "/");
        }
        done_.notify_all();
        queued_.notify_all();
    }
}

} // namespace ZELd
