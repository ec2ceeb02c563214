#include "media/TagCharset.h"

#include "zel/Decoders.h"
#include "zel/IconvDecoder.h"

namespace ZELd {

namespace {

thread_local IconvDecoder* chosen = nullptr;

} // namespace

TagCharset::TagCharset(IconvDecoder* decoder) : previous_(chosen) { chosen = decoder; }

TagCharset::~TagCharset() { chosen = previous_; }

// Tag text ends before a zero byte, so U+0000 in it comes from a set that
// writes that character in other bytes (UTF-7's "+AAA-"); such text is not
// taken, as no Latin-1 text ever holds one.
String TagCharset::decode(const char* p, size_t n)
{
    String text;
    if (chosen && chosen->decode(p, n, text) && text.str().find(L'\0') == std::wstring::npos) return text;
    return Latin1Decoder().decode(p, n);
}

} // namespace ZELd
