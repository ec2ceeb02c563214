// What the harnesses share: a quiet debug report, and the
// check that an input leaves none of the program's blocks behind (they live
// on the allocator's own list, where no leak checker sees them lost).
#pragma once

#include <fcntl.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "zel/Debug.h"
#include "zel/FileName.h"
#include "zel/Writer.h"

// A failed property of the code under test: reported, then a crash for the fuzzer.
#define FUZZ_CHECK(cond)                                                                                                                   \
    ((cond) ? (void)0 : (std::fprintf(stderr, "==fuzz== CHECK FAILED: %s at %s:%d\n", #cond, __FILE__, __LINE__), std::abort()))

namespace fuzzsupport {

inline ZELd::Writer& devNull()
{
    static ZELd::FileWriter writer(::open("/dev/null", O_WRONLY | O_CLOEXEC), nullptr);
    return writer;
}

// Traces and assertions go to /dev/null; the blocks made once are made first.
inline void quiet()
{
    static const bool done = (ZELd::ZELDebugSetGlobalReport(&devNull()), true);
    (void)done;
}

class OwnBlocks {
public:
    OwnBlocks() : before_(ZELd::ZELDebugMemory().ownBlocks) {}
    ~OwnBlocks() { FUZZ_CHECK(ZELd::ZELDebugMemory().ownBlocks == before_); }

private:
    size_t before_;
};

} // namespace fuzzsupport
