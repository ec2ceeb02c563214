// APEv2::read on a file made of the input. The first byte picks the case: the
// header at the start (position 0), the footer at -32 or at -160 (each handed
// in as the tag reader does), or no header at all, which makes the reader search.
#include "FuzzSupport.h"
#include "media/APEv2.h"
#include "zel/Exception.h"
#include "zel/File.h"

using namespace ZELd;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    fuzzsupport::OwnBlocks own;
    if (size < 1) return 0;
    const int mode = data[0] % 4;
    fuzzsupport::MemFile memory(data + 1, size - 1);
    try {
        File file(memory.path(), 1, 438);
        char block[32];
        const char* header = nullptr;
        long long position = 0;
        if (mode == 0) { // header at the start; the file stands right after it
            if (file.read(block, sizeof block) < sizeof block) return 0;
            header = block;
        } else if (mode == 1 || mode == 2) { // footer at -32 or at -160
            position = mode == 1 ? -32 : -160;
            if (file.size() < static_cast<unsigned long long>(-position)) return 0;
            file.seek(position, 2);
            if (file.read(block, sizeof block) < sizeof block) return 0;
            header = block;
        }
        APEv2 tag;
        if (tag.read(file, header, position)) {
            FUZZ_CHECK(tag.size() <= file.size());
            for (const APEv2Item* item : tag.items()) item->toString();
        }
        tag.toString();
    } catch (Exception* e) {
        e->destroy();
    }
    return 0;
}
