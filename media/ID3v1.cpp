#define ZEL_SOURCE "media/ID3v1"
#include "media/ID3v1.h"

#include <cstring>

#include "media/TagCharset.h"
#include "zel/ByteString.h"
#include "zel/Debug.h"
#include "zel/Decoders.h"

namespace ZELd {

namespace {

// A text field: the bytes before the first zero byte, at most width, as Latin-1
// (or in the run's character set: media/TagCharset.h).
String field(const char* p, size_t width) { return TagCharset::decode(p, ByteString::length(p, width)); }

} // namespace

bool ID3v1::read(const char* data)
{
    ZEL_ASSERT(data != NULL);
    if (!data || std::memcmp(data, "TAG", 3) != 0) return false;
    version_ = 1;
    identifier_ = AsciiDecoder().decode(data, 3);
    title_ = field(data + 3, 30);
    artist_ = field(data + 33, 30);
    album_ = field(data + 63, 30);
    year_ = field(data + 93, 4);
    comment_ = field(data + 97, 30);
    // ID3v1.1: a zero byte among the comment's first 29 bytes makes byte 126 the track.
    // Bytes, not characters: a character of a multi-byte set takes more than one.
    if (ByteString::length(data + 97, 29) < 29) track_ = static_cast<signed char>(data[126]);
    genre_ = static_cast<signed char>(data[127]);
    title_ = title_.trim();
    artist_ = artist_.trim();
    album_ = album_.trim();
    year_ = year_.trim();
    comment_ = comment_.trim();
    return true;
}

bool ID3v1::read(File& file)
{
    char buffer[128];
    file.seek(-128, 2);
    if (file.read(buffer, sizeof buffer) < sizeof buffer || std::memcmp(buffer, "TAG", 3) != 0) return false;
    return read(buffer);
}

String ID3v1::toString() const
{
    return String::format(L"%ls Title[%ls] Artist[%ls] Album[%ls] Year[%ls] Comment[%ls] Track[%d] Genre[%d]", identifier_, title_, artist_,
                          album_, year_, comment_, track_, genre_);
}

} // namespace ZELd
