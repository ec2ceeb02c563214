// One ID3v2Frame::read of the input, on behalf of a tag of version 2, 3 or 4
// whose frame sizes read 8 or 7 bits a byte, as the first byte picks. The
// frame ends its heap block exactly, so a read past it shows; and nothing
// after the frame's own end may change what is read.
#include "FuzzSupport.h"
#include "media/ID3v2.h"
#include "support/TagBuilder.h"
#include "zel/Exception.h"
#include "zel/File.h"

using namespace ZELd;

namespace {

String readFrame(const ID3v2& owner, const uint8_t* data, size_t n, size_t& used)
{
    const std::unique_ptr<char[]> bytes(new char[n]);
    if (n) std::memcpy(bytes.get(), data, n);
    ID3v2Frame frame(owner);
    used = frame.read(bytes.get(), bytes.get() + n);
    FUZZ_CHECK(used >= owner.frameHeaderLength() && frame.binary().length() <= n);
    return frame.toString();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    static ID3v2 owners[3][2]; // [version 2, 3, 4][sizes read 8, 7 bits a byte], read from tiny tags once
    static const bool read = [] {
        for (int major = 2; major <= 4; ++major)
            for (int seven = 0; seven < 2; ++seven) {
                const std::string body = testsupport::textBody(seven ? std::string(199, 'a') : "x"); // 200 bytes walk only with seven bits
                const testsupport::TempDir dir;
                testsupport::writeFile(dir / "tag",
                                       testsupport::id3v2(major, {{major == 2 ? "TT2" : "TIT2", body}}, seven ? 100 : 0, 0, seven));
                File file(fromNativePath((dir / "tag").c_str()), 1, 438);
                FUZZ_CHECK(owners[major - 2][seven].read(file, nullptr) && owners[major - 2][seven].fsbits() == (seven ? 7 : 8));
            }
        return true;
    }();
    (void)read;
    fuzzsupport::OwnBlocks own;
    if (size < 1) return 0;
    const ID3v2& owner = owners[data[0] % 3][(data[0] / 3) % 2];
    try {
        size_t used = 0, again = 0;
        const String whole = readFrame(owner, data + 1, size - 1, used);
        if (used > owner.frameHeaderLength() && used < size - 1) FUZZ_CHECK(readFrame(owner, data + 1, used, again) == whole);
    } catch (Exception* e) {
        e->destroy();
    }
    return 0;
}
