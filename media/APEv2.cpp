#define ZEL_SOURCE "media/APEv2"
#include "media/APEv2.h"

#include <cstring>
#include <limits>
#include <optional>

#include "media/TagCharset.h"
#include "media/TagLocation.h"
#include "zel/ByteString.h"
#include "zel/Decoders.h"
#include "zel/Exception.h"
#include "zel/StringBuilder.h"

namespace ZELd {

namespace {
constexpr size_t kAll = std::numeric_limits<size_t>::max();
constexpr size_t kBlock = APEv2::Header::kLength;

// n bytes of a text value: UTF-8, else Latin-1 or the run's character set.
String textValue(const char* p, size_t n)
{
    try {
        return UTF8Decoder().decode(p, n).trim();
    } catch (CharsetConvertException* e) {
        e->destroy();
        return TagCharset::decode(p, n).trim();
    }
}
} // namespace

size_t APEv2Item::read(const char* begin, const char* end)
{
    ZEL_ASSERT(begin + 8 < end);
    if (end - begin < 8) return static_cast<size_t>(end - begin) + 1; // nothing to read: the walk stops
    size_ = APEv2::word(begin);
    flags_ = static_cast<int32_t>(APEv2::word(begin + 4));
    const int type = (flags_ & 6) >> 1;
    const char* p = begin + 8;
    size_t keyLength = 0;
    if (p < end) {
        keyLength = ByteString::length(p, static_cast<size_t>(end - p));
        key_ = AsciiDecoder().decode(p, keyLength);
        p += keyLength < static_cast<size_t>(end - p) ? keyLength + 1 : keyLength;
    }
    const size_t used = keyLength + 9 + size_;
    if (p > end || size_ > static_cast<size_t>(end - p)) return used; // the value runs past the area
    const size_t n = ByteString::length(p, size_);
    if (type == 0) {
        try {
            value_ = UTF8Decoder().decode(p, n);
        } catch (CharsetConvertException* e) {
            ZEL_TRACE(L"UTF8Decoder::decode failed. retry Latin1Decoder\n");
            ZEL_TRACE(L"Item size[%d] flags[%x] type[%d] ", size_, flags_, type);
            ZEL_TRACE(L"%ls key[%ls] [%ls]\n", e->toStringAll(), key_, String::tryString(p, size_, kAll));
            e->destroy();
            value_ = TagCharset::decode(p, n); // Latin-1, or the run's character set
        }
        value_ = value_.trim();
        if (n + 1 < size_) laterBytes_.assign(p + n + 1, size_ - n - 1);
    } else if (type == 1) {
        value_ = String::tryString(p, n, kAll);
    }
    return used;
}

std::vector<String> APEv2Item::laterValues() const
{
    std::vector<String> values;
    const char* p = laterBytes_.data();
    for (size_t at = 0; at < laterBytes_.length();) {
        const size_t length = ByteString::length(p + at, laterBytes_.length() - at);
        if (String later = textValue(p + at, length); !later.isEmpty()) values.push_back(later);
        at += length + 1;
    }
    return values;
}

String APEv2Item::toString() const
{
    StringBuilder b(32);
    b.format(L"size[%d] flags[%x] key[%ls] value[%ls]", size_, flags_, key_, value_);
    return b.toString();
}

APEv2::~APEv2() { release(); }

void APEv2::release()
{
    if (block_) ZEL_FREE(block_);
    block_ = nullptr;
    items_.clear();
}

bool APEv2::read(File& file, const char* header, long long position)
{
    std::optional<TagLocation> at; // when no header is given: the footer at the end, else a header at the start
    if (!header) {
        file.seek(0, 0);
        at.emplace(file);
        at->readTail(file);
        if (!at->hasTail) return false;
        if (!(header = at->apeFooter(position))) {
            header = at->head;
            position = 0;
            file.seek(static_cast<long long>(TagLocation::kHead), 0);
        }
    }
    if (!Header::at(header)) return false;

    release(); // what an earlier read left
    preamble_ = AsciiDecoder().decode(header, Header::kPreambleLength);
    version_ = Header::version(header);
    size_ = word(header + Header::kSizeAt);
    count_ = word(header + Header::kCountAt);
    flags_ = static_cast<int32_t>(word(header + Header::kFlagsAt));

    // Never trust the size: a tag larger than the whole file is refused
    // before anything is allocated. A footer's tag that would begin before
    // the file is read from the file's start (seek stops there), however
    // odd the items that come out.
    if (size_ > file.size()) return false;
    if (position < 0) file.seek(position - static_cast<long long>(size_), 2);
    block_ = static_cast<char*>(ZEL_MALLOC(size_));
    if (!block_) return false;
    const size_t got = file.read(block_, size_);
    if (got < size_) return false;

    // The items: after the 32 bytes before them when found by the footer;
    // before the footer when found by the header.
    const char* begin = block_;
    const char* end = block_ + size_;
    if (position < 0) begin = size_ >= kBlock ? block_ + kBlock : end;
    else end = size_ >= kBlock ? block_ + (size_ - kBlock) : block_;

    while (end - begin > 8) {
        APEv2Item* item = ZEL_NEW APEv2Item();
        size_t used;
        try {
            used = item->read(begin, end);
        } catch (Exception*) {
            delete item;
            throw;
        }
        items_.add(item);
        if (used >= static_cast<size_t>(end - begin)) break;
        begin += used;
    }
    return true;
}

String APEv2::toString() const
{
    return String::format(L"%ls version[%d] size[%d] count[%d] flags[%x]", preamble_, version_, size_, count_, flags_);
}

} // namespace ZELd
