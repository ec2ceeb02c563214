#define ZEL_SOURCE "media/TagBytes"
#include "media/TagBytes.h"

#include <algorithm>
#include <cstring>

#include "media/APEHeader.h"
#include "media/TagLocation.h"

namespace ZELd {

namespace {

// A file this small is read whole, in one request.
constexpr unsigned long long kWhole = 256 * 1024;
// Of a larger file: its start, and the piece before its end (which holds
// TagLocation's 160 bytes and most APE tags).
constexpr size_t kHeadPiece = 64 * 1024, kTailPiece = 4 * 1024;
// A tag larger than this is read at its file's turn, from the file.
constexpr unsigned long long kLargestTag = 448 * 1024;

constexpr size_t kID3v2Header = 10;

} // namespace

bool TagBytes::read(File::Ahead& ahead)
{
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
