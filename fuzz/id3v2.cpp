// ID3v2::read on a file made of the input: from the file alone (header null),
// and with its first 32 bytes handed in as the header, as the tag reader does.
#include "FuzzSupport.h"
#include "media/ID3v2.h"
#include "zel/Exception.h"
#include "zel/File.h"

using namespace ZELd;

namespace {

// The tag and its frames as the verbose report shows them, or "refused".
String readTag(File& file, const char* header)
{
    ID3v2 tag;
    if (!tag.read(file, header)) return String(L"refused");
    FUZZ_CHECK(tag.size() + 10 <= file.size());
    FUZZ_CHECK(tag.fsbits() == 7 || tag.fsbits() == 8);
    String all = tag.toString();
    for (const ID3v2Frame* frame : tag.frames()) all += L"\n" + frame->toString();
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    fuzzsupport::OwnBlocks own;
    fuzzsupport::MemFile memory(data, size);
    try {
        // From the file alone, then with its first 32 bytes handed in: the same tag.
        File file(memory.path(), 1, 438);
        const String alone = readTag(file, nullptr);
        char first[32];
        file.seek(0, 0);
        if (file.read(first, sizeof first) == sizeof first) FUZZ_CHECK(readTag(file, first) == alone);
    } catch (Exception* e) {
        e->destroy();
    }
    return 0;
}
