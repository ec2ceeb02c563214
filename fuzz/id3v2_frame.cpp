// One ID3v2Frame::read on the input bytes, on behalf of a real tag of version
// 2, 3 or 4 whose frame sizes read 8 or 7 bits a byte, as the first byte picks.
// The frame bytes end the heap block exactly, so a read past them is caught.
#include "FuzzSupport.h"
#include "media/ID3v2.h"
#include "support/TagBuilder.h"
#include "zel/File.h"

using namespace ZELd;
using tagfix::Frame;

namespace {

// Owners [version 2, 3, 4][sizes read 8, 7 bits a byte], each read from a tiny
// tag: a small frame reads alike both ways, so 8 bits win; a 200-byte one with
// seven-bit sizes and padding walks only with 7.
struct Owners {
    ID3v2 tags[3][2];
    Owners()
    {
        for (int major = 2; major <= 4; ++major)
            for (int seven = 0; seven < 2; ++seven) {
                const Frame frame{major == 2 ? "TT2" : "TIT2", tagfix::textBody(seven ? std::string(199, 'a') : "x")};
                const std::string bytes = tagfix::id3v2(major, {frame}, seven ? 100 : 0, 0, seven);
                fuzzsupport::MemFile memory(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
                File file(memory.path(), 1, 438);
                ID3v2& tag = tags[major - 2][seven];
                if (!tag.read(file, nullptr) || tag.fsbits() != (seven ? 7 : 8)) std::abort();
            }
    }
};

// Reads one frame from n bytes that end their heap block exactly; used gets
// what the frame says it occupies.
String readFrame(const ID3v2& owner, const uint8_t* data, size_t n, size_t& used)
{
    const std::unique_ptr<char[]> bytes = fuzzsupport::heapCopy(data, n);
    ID3v2Frame frame(owner);
    used = frame.read(bytes.get(), bytes.get() + n);
    FUZZ_CHECK(used >= owner.frameHeaderLength());
    FUZZ_CHECK(frame.binary().length() <= n);
    return frame.toString();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    static Owners owners; // made before the count of blocks starts
    fuzzsupport::OwnBlocks own;
    if (size < 1) return 0;
    const ID3v2& owner = owners.tags[data[0] % 3][(data[0] / 3) % 2];
    try {
        // The frame as given, then cut right after its own end: nothing beyond
        // the frame may change what is read (a frame needs a body to be read at all).
        size_t used = 0, again = 0;
        const String whole = readFrame(owner, data + 1, size - 1, used);
        if (used > owner.frameHeaderLength() && used < size - 1) FUZZ_CHECK(readFrame(owner, data + 1, used, again) == whole);
    } catch (Exception* e) {
        e->destroy();
    }
    return 0;
}
