// What the harnesses share: a quiet debug report, a file in memory, and the
// check that an input leaves none of the program's blocks behind (they live
// on the allocator's own list, where no leak checker sees them lost).
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

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
#define FUZZ_CHECK(cond) ((cond) ? (void)0 : (std::fprintf(stderr, "==fuzz== CHECK FAILED: %s at %s:%d\n", #cond, __FILE__, __LINE__), std::abort()))

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

// A regular file in memory holding the bytes, opened by its /proc path.
class MemFile {
public:
    MemFile(const std::string& bytes) : fd_(::memfd_create("fuzz", MFD_CLOEXEC))
    {
        if (fd_ < 0 || ::write(fd_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
    }
    ~MemFile() { ::close(fd_); }
    ZELd::String path() const { return ZELd::fromNativePath(("/proc/self/fd/" + std::to_string(fd_)).c_str()); }

private:
    int fd_;
};

class OwnBlocks {
public:
    OwnBlocks() : before_(ZELd::ZELDebugMemory().ownBlocks) {}
    ~OwnBlocks() { FUZZ_CHECK(ZELd::ZELDebugMemory().ownBlocks == before_); }

private:
    size_t before_;
};

} // namespace fuzzsupport
