#define ZEL_SOURCE "media/ProbedFile"
#include "media/ProbedFile.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace ZELd {

namespace {

// The C library's functions, which the ones at the end stand in front of.
struct Next {
    FILE* (*fopen64)(const char*, const char*);
    int (*fclose)(FILE*);
    ssize_t (*read)(int, void*, size_t);
    off64_t (*lseek64)(int, off64_t, int);
    int (*stat)(const char*, struct stat*);
};

template <class Function>
Function next(const char* name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

const Next& following()
{
    static const Next functions = {
        next<decltype(Next::fopen64)>("fopen64"), next<decltype(Next::fclose)>("fclose"), next<decltype(Next::read)>("read"),
        next<decltype(Next::lseek64)>("lseek64"), next<decltype(Next::stat)>("stat"),
    };
    return functions;
}

// One served open: a duplicate of the held descriptor, and its own position.
struct Stream {
    int fd = -1;
    off64_t position = 0;
    off64_t size = 0;
};

// More than the library keeps open of one file at a time; an open beyond
// them goes to the file system.
constexpr size_t kStreams = 8;

struct Served {
    std::mutex lock;
    std::string name; // empty: no file is served
    int fd = -1;
    struct stat facts = {};
    unsigned opens = 0;
    Stream streams[kStreams];

    // The served open whose descriptor is fd (-1: a free one), or null; under the lock.
    Stream* find(int fd)
    {
        for (Stream& s : streams)
            if (s.fd == fd) return &s;
        return nullptr;
    }
};

Served gServed;
// Served opens that are open: the program's own reads and seeks look no
// further while there are none.
std::atomic<unsigned> gStreams{0};
std::atomic<bool> gServing{false};

bool readOnly(const char* mode) { return mode && mode[0] == 'r' && !std::strchr(mode, '+'); }

} // namespace

ProbedFile::ProbedFile(std::string name, int fd)
{
    following(); // resolved before the first open it serves
    std::lock_guard<std::mutex> hold(gServed.lock);
    if (::fstat(fd, &gServed.facts) != 0) return; // nothing served: the library opens the file itself
    gServed.name = std::move(name);
    gServed.fd = fd;
    gServed.opens = 0;
    gServing.store(true);
}

ProbedFile::~ProbedFile()
{
    std::lock_guard<std::mutex> hold(gServed.lock);
    gServing.store(false);
    gServed.name.clear();
    gServed.fd = -1;
}

unsigned ProbedFile::opens() const
{
    std::lock_guard<std::mutex> hold(gServed.lock);
    return gServed.opens;
}

} // namespace ZELd

using ZELd::gServed;
using ZELd::gServing;
using ZELd::gStreams;

extern "C" {

FILE* fopen64(const char* name, const char* mode)
{
    if (gServing.load() && name && ZELd::readOnly(mode)) {
        std::lock_guard<std::mutex> hold(gServed.lock);
        ZELd::Stream* free = gServed.find(-1);
        if (gServed.fd >= 0 && free && gServed.name == name) {
            const int fd = ::fcntl(gServed.fd, F_DUPFD_CLOEXEC, 0);
            FILE* file = fd < 0 ? nullptr : ::fdopen(fd, mode);
            if (file) {
                *free = {fd, 0, gServed.facts.st_size};
                gStreams.fetch_add(1);
                ++gServed.opens;
                return file;
            }
            if (fd >= 0) ::close(fd);
        }
    }
    return ZELd::following().fopen64(name, mode);
}

int fclose(FILE* file)
{
    if (gStreams.load() != 0 && file) {
        std::lock_guard<std::mutex> hold(gServed.lock);
        if (ZELd::Stream* stream = gServed.find(::fileno(file)); stream && stream->fd >= 0) {
            *stream = ZELd::Stream();
            gStreams.fetch_sub(1);
        }
    }
    return ZELd::following().fclose(file);
}

ssize_t read(int fd, void* buffer, size_t n)
{
    if (gStreams.load() != 0) {
        std::lock_guard<std::mutex> hold(gServed.lock);
        if (ZELd::Stream* stream = fd < 0 ? nullptr : gServed.find(fd)) {
            const ssize_t got = ::pread64(fd, buffer, n, stream->position);
            if (got > 0) stream->position += got;
            return got;
        }
    }
    return ZELd::following().read(fd, buffer, n);
}

off64_t lseek64(int fd, off64_t offset, int whence) noexcept
{
    if (gStreams.load() != 0) {
        std::lock_guard<std::mutex> hold(gServed.lock);
        if (ZELd::Stream* stream = fd < 0 ? nullptr : gServed.find(fd)) {
            off64_t to = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? stream->position : whence == SEEK_END ? stream->size : -1;
            if (to < 0 || (offset < 0 && offset < -to) || (offset > 0 && offset > INT64_MAX - to)) {
                errno = EINVAL;
                return -1;
            }
            return stream->position = to + offset;
        }
    }
    return ZELd::following().lseek64(fd, offset, whence);
}

int stat(const char* name, struct stat* facts) noexcept
{
    if (gServing.load()) {
        std::lock_guard<std::mutex> hold(gServed.lock);
        if (gServed.fd >= 0 && gServed.name == name) {
            *facts = gServed.facts;
            return 0;
        }
    }
    return ZELd::following().stat(name, facts);
}

} // extern "C"
