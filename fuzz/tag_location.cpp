// TagReader::readTag over a file made of the input, then the verbose report of
// what it found. MediaInfo is never run: only the tags are read.
#include <cstring>

#include "FuzzSupport.h"
#include "media/MainArguments.h"
#include "media/TagReader.h"
#include "zel/Exception.h"

using namespace ZELd;

namespace {

// The reader of a verbose run whose writers go to /dev/null.
struct Reader {
    MainArguments arguments{fuzzsupport::devNull(), fuzzsupport::devNull()};
    bool parsed = parse(arguments);
    TagReader reader{arguments};

    static bool parse(MainArguments& arguments)
    {
        char program[] = "sonarcat", verbose[] = "--verbose", path[] = "fuzz.mp3";
        char* argv[] = {program, verbose, path, nullptr};
        if (!arguments.parse(3, argv, true)) std::abort();
        return true;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    static Reader made; // made before the count of blocks starts
    fuzzsupport::OwnBlocks own;
    fuzzsupport::MemFile memory(data, size);
    const String dir(L"/proc/self/fd/");
    const String path = memory.path();
    const String name = path.substring(dir.length());
    try {
        TagReader::FileInfo info(dir, name);
        made.reader.readTag(path, info);
        // The last 160 bytes are read at once: an ID3v1 tag ending them is always found.
        const bool v1 = size >= 160 && std::memcmp(data + size - 128, "TAG", 3) == 0;
        FUZZ_CHECK(info.id3v1.version() == (v1 ? 1 : 0));
        made.reader.print(info);
    } catch (Exception* e) {
        e->destroy();
    }
    return 0;
}
