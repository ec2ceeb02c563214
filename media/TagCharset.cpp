#include "media/TagCharset.h"

#include "zel/Decoders.h"
#include "zel/IconvDecoder.h"

namespace ZELd {

namespace {

thread_local IconvDecoder* chosen = nullptr;

} // namespace

TagCharset::TagCharset(IconvDecoder* decoder) : previous_(chosen) { chosen = decoder; }

TagCharset::~TagCharset() { chosen = previous_; }

String TagCharset::decode(const char* p, size_t n)
{
    String text;
    if (chosen && chosen->decode(p, n, text)) return text;
    return Latin1Decoder().decode(p, n);
}

} // namespace ZELd
