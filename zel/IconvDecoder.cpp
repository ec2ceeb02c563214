#define ZEL_SOURCE "zel/IconvDecoder"
#include "zel/IconvDecoder.h"

#include <cerrno>

#include "zel/Exception.h"
#include "zel/Utf8.h"

namespace ZELd {

namespace {

const iconv_t kNoDescriptor = reinterpret_cast<iconv_t>(-1);
constexpr size_t kFailed = static_cast<size_t>(-1);
// glibc's name for wchar_t text: UTF-32 in the machine's byte order on Linux.
constexpr char kWideText[] = "WCHAR_T";
// The buffer is kept for the next text up to this many characters; a longer
// text's buffer is released at once, so that one huge frame does not hold its
// memory for the rest of the run.
constexpr size_t kKeptCharacters = 64 * 1024;
// No set that glibc knows gives more characters a byte (TSCII gives four).
constexpr size_t kMostCharactersPerByte = 4;

} // namespace

IconvDecoder::IconvDecoder(const String& charset)
    : descriptor_(charset.isEmpty() || charset[0] == L'/' ? kNoDescriptor : ::iconv_open(kWideText, toUtf8(charset.str()).c_str()))
{
    if (descriptor_ == kNoDescriptor) throw ZEL_NEW CharsetConvertException(String::format(L"unknown character set '%ls'", charset));
}

IconvDecoder::~IconvDecoder() { ::iconv_close(descriptor_); }

bool IconvDecoder::decode(const char* p, size_t n, String& out)
{
    if (n == 0) {
        out = String();
        return true;
    }
    if (buffer_.size() < n) buffer_.resize(n); // nearly every set gives at most one character a byte
    for (;;) {
        ::iconv(descriptor_, nullptr, nullptr, nullptr, nullptr); // every text starts in the initial shift state
        char* in = const_cast<char*>(p);                          // iconv only reads it
        size_t inLeft = n, room = buffer_.size() * sizeof(wchar_t);
        char* to = reinterpret_cast<char*>(buffer_.data());
        // All the input, then its end: a set that holds a character back, to
        // combine it with the next one, gives it then.
        if (::iconv(descriptor_, &in, &inLeft, &to, &room) != kFailed && ::iconv(descriptor_, nullptr, nullptr, &to, &room) != kFailed) {
            out = String(buffer_.data(), buffer_.size() - room / sizeof(wchar_t));
            break;
        }
        // EILSEQ: not valid in the set; EINVAL: a sequence cut short at the end.
        if (errno != E2BIG || buffer_.size() >= kMostCharactersPerByte * n) return false;
        // More characters than bytes: the whole text again, with room for
        // twice as many, since a set that ran out of room halfway through a
        // character may have lost some.
        buffer_.resize(2 * buffer_.size());
    }
    if (buffer_.size() > kKeptCharacters) std::vector<wchar_t>().swap(buffer_);
    return true;
}

} // namespace ZELd
