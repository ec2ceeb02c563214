// ID3v1::read on the 128 tag bytes taken from the input (cut, or padded with zero bytes).
#include <cstring>

#include "FuzzSupport.h"
#include "media/ID3v1.h"

using namespace ZELd;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    fuzzsupport::OwnBlocks own;
    char tag[128] = {};
    std::memcpy(tag, data, size < sizeof tag ? size : sizeof tag);
    try {
        ID3v1 t;
        const bool read = t.read(tag);
        FUZZ_CHECK(read == (std::memcmp(tag, "TAG", 3) == 0));
        FUZZ_CHECK(t.version() == (read ? 1 : 0));
        if (read) {
            // Fields are bounded by their width and hold no blank at either end.
            FUZZ_CHECK(t.title().length() <= 30 && t.artist().length() <= 30 && t.album().length() <= 30);
            FUZZ_CHECK(t.year().length() <= 4 && t.comment().length() <= 30);
            FUZZ_CHECK(t.title().trim() == t.title() && t.comment().trim() == t.comment());
            FUZZ_CHECK(t.genre() == static_cast<signed char>(tag[127]));
        }
        t.toString();
    } catch (Exception* e) {
        e->destroy();
    }
    return 0;
}
