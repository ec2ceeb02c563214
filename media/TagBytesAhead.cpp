#define ZEL_SOURCE "media/TagBytesAhead"
#include "media/TagBytesAhead.h"

#include <algorithm>
#include <cstring>

#include "media/APEHeader.h"
#include "media/TagLocation.h"
#include "zel/Debug.h"

namespace ZELd {

namespace {

// Files for each thread in the window: a thread that ends a read finds the
// next one waiting.
constexpr size_t kWindowPerThread = 4;
// A file this small is read whole, in one request.
constexpr unsigned long long kWhole = 256 * 1024;
// Of a larger file: its start, and the piece before its end (which holds
// TagLocation's 160 bytes and most APE tags).
constexpr size_t kHeadPiece = 64 * 1024, kTailPiece = 4 * 1024;
// A tag larger than this is read at its file's turn.
constexpr unsigned long long kLargestTag = 16ull * 1024 * 1024;
// No file is read ahead while the files read and not yet taken hold this much.
constexpr size_t kMostHeld = 64 * 1024 * 1024;

constexpr size_t kID3v2Header = 10;

size_t heldBy(const File::Ahead& ahead) { return ahead.head.size() + ahead.tail.size(); }

} // namespace

TagBytesAhead::TagBytesAhead(unsigned threads) : capacity_(threads == 0 ? 0 : kWindowPerThread * threads + 1)
{
    for (unsigned i = 0; i < threads; ++i) threads_.emplace_back([this] { work(); });
}

TagBytesAhead::~TagBytesAhead()
{
    {
        std::lock_guard<std::mutex> hold(lock_);
        ending_ = true;
    }
    queued_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

void TagBytesAhead::turn(const WalkedFile& file, const std::vector<const WalkedFile*>& next)
{
    if (capacity_ == 0) return;
    std::deque<std::shared_ptr<Entry>> dropped; // closed outside the lock
    {
        std::lock_guard<std::mutex> hold(lock_);
        while (!window_.empty() && window_.front()->path != file.path) {
            drop(*window_.front());
            dropped.push_back(std::move(window_.front()));
            window_.pop_front();
        }
        auto add = [this](const WalkedFile& f) {
            auto entry = std::make_shared<Entry>();
            entry->path = f.path;
            entry->mp3 = f.name.toLowerCase().endsWith(L".mp3");
            if (!entry->mp3) entry->state = Entry::State::Done;
            window_.push_back(std::move(entry));
        };
        if (window_.empty()) add(file);
        for (size_t ahead = window_.size() - 1; window_.size() < capacity_ && ahead < next.size(); ++ahead) add(*next[ahead]);
    }
    queued_.notify_all();
}

std::unique_ptr<File> TagBytesAhead::take(const WalkedFile& file)
{
    std::unique_lock<std::mutex> hold(lock_);
    if (window_.empty() || window_.front()->path != file.path) return nullptr;
    std::shared_ptr<Entry> entry = std::move(window_.front());
    window_.pop_front();
    read_.wait(hold, [&] { return entry->state != Entry::State::Reading; });
    // A file that changed since the walk looked at it is read at its turn.
    const bool kept = entry->state == Entry::State::Done && entry->kept && entry->ahead.size == file.facts.size &&
                      entry->ahead.modification == file.facts.modification;
    drop(*entry);
    hold.unlock();
    queued_.notify_all(); // room for more bytes
    return kept ? std::unique_ptr<File>(ZEL_NEW File(file.fullPath(), std::move(entry->ahead))) : nullptr;
}

void TagBytesAhead::drop(Entry& entry)
{
    if (entry.state == Entry::State::Done && entry.kept) held_ -= heldBy(entry.ahead);
    if (entry.state == Entry::State::Queued) entry.state = Entry::State::Done; // never read
    else if (entry.state == Entry::State::Reading) entry.state = Entry::State::Dropped;
}

void TagBytesAhead::work()
{
    std::unique_lock<std::mutex> hold(lock_);
    for (;;) {
        std::shared_ptr<Entry> entry;
        queued_.wait(hold, [&] {
            if (ending_) return true;
            if (held_ >= kMostHeld) return false;
            auto it = std::find_if(window_.begin(), window_.end(), [](const auto& e) { return e->state == Entry::State::Queued; });
            if (it != window_.end()) entry = *it;
            return entry != nullptr;
        });
        if (ending_) return;
        entry->state = Entry::State::Reading;
        hold.unlock();
        File::Ahead ahead;
        const bool kept = read(entry->path, ahead);
        hold.lock();
        if (entry->state == Entry::State::Dropped) {
            entry->state = Entry::State::Done; // passed by while it was read: closed here
        } else {
            entry->state = Entry::State::Done;
            entry->kept = kept;
            if (kept) held_ += heldBy(ahead), entry->ahead = std::move(ahead);
        }
        read_.notify_all();
    }
}

bool TagBytesAhead::read(const std::string& path, File::Ahead& ahead)
{
    if (!ahead.open(path.c_str())) return false;
    const unsigned long long size = ahead.size;
    if (size <= kWhole) return ahead.keep(0, static_cast<size_t>(size));
    if (!ahead.keep(0, kHeadPiece)) return false;
    // A tag at the start, whole: an ID3v2 tag's body follows its 10-byte
    // header, an APE tag's items its 32.
    const std::string& head = ahead.head;
    unsigned long long tagEnd = 0;
    if (head.size() >= kID3v2Header && std::memcmp(head.data(), "ID3", 3) == 0) {
        unsigned long long body = 0;
        for (size_t i = 6; i < kID3v2Header; ++i) body = body * 128 + (static_cast<unsigned char>(head[i]) & 0x7F);
        tagEnd = kID3v2Header + body;
    } else if (head.size() >= APEHeader::kLength && APEHeader::at(head.data())) {
        tagEnd = APEHeader::kLength + APEHeader::word(head.data() + APEHeader::kSizeAt);
    }
    if (tagEnd > head.size() && tagEnd <= std::min(size, kLargestTag) &&
        !ahead.keep(head.size(), static_cast<size_t>(tagEnd - head.size())))
        return false;
    // The end, and an APE tag that ends there (before an ID3v1 tag or not).
    const unsigned long long tailAt = size - kTailPiece;
    if (!ahead.keep(tailAt, kTailPiece) || ahead.tail.size() < TagLocation::kTail) return true;
    const char* last = ahead.tail.data() + ahead.tail.size() - TagLocation::kTail;
    for (const unsigned long long footerAt : {0ull, 128ull}) {
        if (!APEHeader::at(last + footerAt)) continue;
        const unsigned long long tag = APEHeader::word(last + footerAt + APEHeader::kSizeAt);
        const unsigned long long tagEnds = size - TagLocation::kTail + footerAt;
        if (tag <= kLargestTag && tag <= tagEnds && tagEnds - tag < tailAt &&
            !ahead.keep(tagEnds - tag, static_cast<size_t>(tailAt - (tagEnds - tag))))
            return false;
        break;
    }
    return true;
}

} // namespace ZELd
