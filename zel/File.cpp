#define ZEL_SOURCE "zel/File"
#include "zel/File.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "zel/Exception.h"
#include "zel/FileName.h"

namespace ZELd {

File::File(const String& path, int /*flags*/, int /*mode*/) : path_(path)
{
    std::string native = nativePath(path);
    // O_NONBLOCK so that opening a FIFO cannot hang; it is refused below.
    int fd;
    do {
        fd = ::open(native.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        const int error = errno; // read before the allocation can touch it
        throw ZEL_NEW IOException(path, L"Open Failed", error);
    }
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        int error = errno;
        ::close(fd);
        throw ZEL_NEW IOException(path, L"Open Failed", error);
    }
    if (!S_ISREG(st.st_mode)) {
        ::close(fd);
        throw ZEL_NEW IOException(path, S_ISDIR(st.st_mode) ? L"Open Failed: a directory" : L"Open Failed: not a regular file");
    }
    fd_ = fd;
    size_ = static_cast<unsigned long long>(st.st_size);
}

File::~File()
{
    if (fd_ >= 0) ::close(fd_);
}

namespace {

// Reads until n bytes came or the file ended, one call of `once(p, count, done)` after another.
template <class Once>
size_t readFully(const String& path, void* buffer, size_t n, Once once)
{
    size_t done = 0;
    char* p = static_cast<char*>(buffer);
    while (done < n) {
        const ssize_t got = once(p + done, n - done, done);
        if (got < 0) {
            if (errno == EINTR) continue;
            const int error = errno;
            throw ZEL_NEW IOException(path, L"Read Failed", error);
        }
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

} // namespace

size_t File::read(void* buffer, size_t n)
{
    return readFully(path_, buffer, n, [this](char* p, size_t count, size_t) { return ::read(fd_, p, count); });
}

size_t File::readAt(unsigned long long offset, void* buffer, size_t n)
{
    return readFully(path_, buffer, n, [this, offset](char* p, size_t count, size_t done) {
        return ::pread(fd_, p, count, static_cast<off_t>(offset + done));
    });
}

long long File::seek(long long offset, int origin)
{
    int whence = origin == 2 ? SEEK_END : (origin == 1 ? SEEK_CUR : SEEK_SET);
    off_t place = ::lseek(fd_, static_cast<off_t>(offset), whence);
    if (place < 0 && errno == EINVAL && offset < 0) place = ::lseek(fd_, 0, SEEK_SET); // before the start
    if (place < 0) {
        const int error = errno;
        throw ZEL_NEW IOException(path_, L"Seek Failed", error);
    }
    return place;
}

} // namespace ZELd
