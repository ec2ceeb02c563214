// What every harness shares: a quiet debug report, files made of the input,
// and the check that an input leaves none of the program's blocks behind.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/FileName.h"
#include "zel/String.h"
#include "zel/Writer.h"

namespace fuzzsupport {

// A writer on /dev/null, made once.
inline ZELd::Writer& devNull()
{
    static ZELd::FileWriter writer(::open("/dev/null", O_WRONLY | O_CLOEXEC), nullptr);
    return writer;
}

// Traces and assertions go to /dev/null instead of flooding the output.
inline void quiet()
{
    static const bool done = (ZELd::ZELDebugSetGlobalReport(&devNull()), true);
    (void)done;
}

// The bytes in a heap block of exactly their size, so that a read past them is caught.
inline std::unique_ptr<char[]> heapCopy(const uint8_t* data, size_t size)
{
    std::unique_ptr<char[]> copy(new char[size]);
    if (size) std::memcpy(copy.get(), data, size);
    return copy;
}

// A regular file in memory holding the given bytes, opened by its /proc path.
class MemFile {
public:
    MemFile(const uint8_t* data, size_t size) : fd_(::memfd_create("fuzz", MFD_CLOEXEC))
    {
        if (fd_ < 0) std::abort();
        for (size_t done = 0; done < size;) {
            const ssize_t n = ::write(fd_, data + done, size - done);
            if (n <= 0) std::abort();
            done += static_cast<size_t>(n);
        }
    }
    ~MemFile() { ::close(fd_); }
    MemFile(const MemFile&) = delete;
    MemFile& operator=(const MemFile&) = delete;

    ZELd::String path() const { return ZELd::fromNativePath(("/proc/self/fd/" + std::to_string(fd_)).c_str()); }

private:
    int fd_;
};

// The blocks allocated with a source are kept on the allocator's own list, so
// no leak checker sees them lost: count them before and after each input.
class OwnBlocks {
public:
    OwnBlocks() : before_(ZELd::ZELDebugMemory().ownBlocks) {}
    ~OwnBlocks()
    {
        const size_t after = ZELd::ZELDebugMemory().ownBlocks;
        if (after != before_) {
            std::fprintf(stderr, "==fuzz== LEAK: %zu block(s) of the program before the input, %zu after\n", before_, after);
            ZELd::ZELDebugDumpGlobalMemoryLeak(0, errWriter());
            std::abort();
        }
    }

private:
    static ZELd::Writer& errWriter()
    {
        static ZELd::FileWriter writer(2, nullptr);
        return writer;
    }
    size_t before_;
};

} // namespace fuzzsupport

// A failed property of the code under test: reported, then a crash for the fuzzer.
#define FUZZ_CHECK(cond)                                                                                \
    do {                                                                                                \
        if (!(cond)) {                                                                                  \
            std::fprintf(stderr, "==fuzz== CHECK FAILED: %s at %s:%d\n", #cond, __FILE__, __LINE__);   \
            std::abort();                                                                               \
        }                                                                                               \
    } while (0)
