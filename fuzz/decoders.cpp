// The charset decoders and String::tryString on the input bytes.
#include "FuzzSupport.h"
#include "zel/Decoders.h"
#include "zel/Exception.h"
#include "zel/Utf8.h"

using namespace ZELd;

namespace {

// Decodes, or tells that the decoder refused the bytes.
template <class Decoder>
bool attempt(const Decoder& decoder, const char* p, size_t n, String& out)
{
    try {
        out = decoder.decode(p, n);
        return true;
    } catch (Exception* e) {
        e->destroy();
        return false;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    fuzzsupport::OwnBlocks own;
    const char* p = reinterpret_cast<const char*>(data);
    const std::string bytes(p, size);
    String text;

    bool ascii = true;
    for (uint8_t b : bytes) ascii = ascii && b < 0x80;
    FUZZ_CHECK(attempt(AsciiDecoder(), p, size, text) == ascii);
    if (ascii) FUZZ_CHECK(toUtf8(text.str()) == bytes);

    FUZZ_CHECK(attempt(Latin1Decoder(), p, size, text) && text.length() == size);
    for (size_t i = 0; i < size; ++i) FUZZ_CHECK(text[i] == static_cast<wchar_t>(data[i]));

    // What strict UTF-8 accepts encodes back to the very same bytes.
    if (attempt(UTF8Decoder(), p, size, text)) FUZZ_CHECK(toUtf8(text.str()) == bytes);

    for (int order : {1234, 4321}) {
        FUZZ_CHECK(attempt(UTF16Decoder(order), p, size, text));
        FUZZ_CHECK(text.length() <= size / 2);
        for (wchar_t c : text.str()) FUZZ_CHECK(c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF));
    }

    const size_t max = size ? data[0] % 64 : 0;
    FUZZ_CHECK(String::tryString(p, size, max).length() <= max);
    FUZZ_CHECK(String::tryString(p, size, static_cast<size_t>(-1)).length() <= size);
    return 0;
}
