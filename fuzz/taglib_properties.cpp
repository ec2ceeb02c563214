// Bytes read as an audio file by TagLib, as the helpers read a file's tags
// (--all-formats), under a name whose extension the first byte picks: the
// reading never goes past the file, and what it gives can be stored (no
// empty key or value, no NUL, no unit that is no Unicode character).
#include <sys/mman.h>
#include <unistd.h>

#include "FuzzSupport.h"
#include "TagLibExtensions.h"
#include "media/TagLibProperties.h"
#include "zel/Exception.h"

using namespace ZELd;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzzsupport::quiet();
    if (size == 0) return 0;
    static const int fd = ::memfd_create("taglib", MFD_CLOEXEC);
    FUZZ_CHECK(fd >= 0);
    FUZZ_CHECK(::ftruncate(fd, 0) == 0);
    FUZZ_CHECK(::pwrite(fd, data + 1, size - 1, 0) == static_cast<ssize_t>(size - 1));
    const std::string_view extension = fuzzsupport::kTagLibExtensions[data[0] % fuzzsupport::kTagLibExtensionCount];
    const String name = String(L"/fuzz/input") + String(std::wstring(extension.begin(), extension.end()));
    fuzzsupport::OwnBlocks own;
    try {
        for (const TagProperty& p : TagLibProperties::read(fd, name)) {
            FUZZ_CHECK(!p.source.isEmpty() && !p.key.isEmpty() && !p.value.isEmpty());
            for (const String* text : {&p.key, &p.value})
                for (const wchar_t c : text->str())
                    FUZZ_CHECK(c != L'\0' && !(c >= 0xD800 && c <= 0xDFFF) && static_cast<uint32_t>(c) <= 0x10FFFF);
        }
    } catch (Exception* e) {
        e->destroy();
    }
    return 0;
}
