// Bytes from a helper's pipe, taken apart into results as the program takes
// them: each message taken is one whole result, which encodes back to the
// very bytes it was taken from; what is left is a cut message (0 taken) or
// bytes that are refused.
#include "FuzzSupport.h"
#include "media/ProbeResult.h"
#include "zel/Exception.h"

using namespace ZELd;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    fuzzsupport::OwnBlocks own;
    const char* p = reinterpret_cast<const char*>(data);
    try {
        ProbeResult result;
        for (size_t used; (used = ProbeResult::decode(p, size, result)) > 0; p += used, size -= used) {
            FUZZ_CHECK(used <= size);
            std::string again;
            result.encode(again);
            FUZZ_CHECK(again == std::string(p, used));
        }
    } catch (Exception* e) {
        e->destroy();
    }
    return 0;
}
