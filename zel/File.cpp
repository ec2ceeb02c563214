#define ZEL_SOURCE "zel/File"
#include "zel/File.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "zel/Exception.h"
#include "zel/FileName.h"

namespace ZELd {

namespace {

enum class Refusal { None, Error, Directory, NotRegular };

// Opens a regular file for reading: its descriptor, or -1 with the reason
// (an error in errno, or a file that is no regular one).
int openRegular(const char* native, struct stat& st, Refusal& refusal)
{
    // O_NONBLOCK so that opening a FIFO cannot hang; it is refused below.
    int fd;
    do {
        fd = ::open(native, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (fd < 0 && errno == EINTR);
    refusal = Refusal::Error;
    if (fd < 0) return -1;
    const bool looked = ::fstat(fd, &st) == 0;
    if (!looked || !S_ISREG(st.st_mode)) {
        const int error = errno;
        if (looked) refusal = S_ISDIR(st.st_mode) ? Refusal::Directory : Refusal::NotRegular;
        ::close(fd);
        errno = error;
        return -1;
    }
    refusal = Refusal::None;
    return fd;
}

} // namespace

File::File(const String& path, int /*flags*/, int /*mode*/) : path_(path) { size_ = open(); }

unsigned long long File::open()
{
    std::string native = nativePath(path_);
    Refusal refusal;
    struct stat st;
    fd_ = openRegular(native.c_str(), st, refusal);
    if (fd_ < 0) {
        const int error = errno; // read before the allocation can touch it
        if (refusal == Refusal::Directory) throw ZEL_NEW IOException(path_, L"Open Failed: a directory");
        if (refusal == Refusal::NotRegular) throw ZEL_NEW IOException(path_, L"Open Failed: not a regular file");
        throw ZEL_NEW IOException(path_, L"Open Failed", error);
    }
    return static_cast<unsigned long long>(st.st_size);
}

File::File(const String& path, Ahead&& ahead) : path_(path), fd_(std::exchange(ahead.fd, -1)), size_(ahead.size), ahead_(std::move(ahead))
{}

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
    const size_t got = readAt(place_, buffer, n);
    place_ += got;
    return got;
}

size_t File::readAt(unsigned long long offset, void* buffer, size_t n)
{
    if (ahead_.head.size() == size_ && size_ != 0) { // the whole file was read ahead
        const size_t got = offset < size_ ? static_cast<size_t>(std::min<unsigned long long>(n, size_ - offset)) : 0;
        if (got != 0) std::memcpy(buffer, ahead_.head.data() + offset, got);
        return got;
    }
    for (const auto& [at, bytes] : {std::pair(0ull, &ahead_.head), std::pair(ahead_.tailAt, &ahead_.tail)})
        if (offset >= at && offset - at <= bytes->size() && n <= bytes->size() - (offset - at) && !bytes->empty()) {
            std::memcpy(buffer, bytes->data() + (offset - at), n);
            return n;
        }
    if (fd_ < 0) open(); // read ahead without its descriptor: opened for what lies beyond
    return readFully(path_, buffer, n, [this, offset](char* p, size_t count, size_t done) {
        return ::pread(fd_, p, count, static_cast<off_t>(offset + done));
    });
}

long long File::seek(long long offset, int origin)
{
    const unsigned long long from = origin == 2 ? size_ : (origin == 1 ? place_ : 0);
    const unsigned long long distance =
        offset < 0 ? 0ull - static_cast<unsigned long long>(offset) : static_cast<unsigned long long>(offset);
    if (offset < 0) place_ = distance <= from ? from - distance : 0; // before the start stops at the start
    else place_ = std::min<unsigned long long>(from + distance, std::numeric_limits<long long>::max());
    return static_cast<long long>(place_);
}

File::Ahead::Ahead(Ahead&& other) noexcept
    : fd(std::exchange(other.fd, -1)), size(other.size), modification(other.modification), head(std::move(other.head)),
      tailAt(other.tailAt), tail(std::move(other.tail))
{}

File::Ahead& File::Ahead::operator=(Ahead&& other) noexcept
{
    if (this != &other) {
        if (fd >= 0) ::close(fd);
        fd = std::exchange(other.fd, -1);
        size = other.size;
        modification = other.modification;
        head = std::move(other.head);
        tailAt = other.tailAt;
        tail = std::move(other.tail);
    }
    return *this;
}

File::Ahead::~Ahead()
{
    if (fd >= 0) ::close(fd);
}

bool File::Ahead::open(const char* nativePath)
{
    Refusal refusal;
    struct stat st;
    fd = openRegular(nativePath, st, refusal);
    if (fd < 0) return false;
    size = static_cast<unsigned long long>(st.st_size);
    modification = st.st_mtim.tv_sec * 1000LL + st.st_mtim.tv_nsec / 1000000;
    return true;
}

bool File::Ahead::keep(unsigned long long offset, size_t n)
{
    std::string bytes(n, '\0');
    size_t done = 0;
    while (done < n) {
        const ssize_t got = ::pread(fd, bytes.data() + done, n - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    bytes.resize(done);
    if (offset == head.size()) head += bytes;
    else if (offset + done == tailAt || tail.empty()) tailAt = offset, tail = bytes + tail;
    return true;
}

} // namespace ZELd
