#define ZEL_SOURCE "zel/Dir"
#include "zel/Dir.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/FileName.h"

namespace ZELd {

namespace {
Dir* gInnermost = nullptr; // the walk's open directories form a chain
// Directories that keep their descriptor open for the looks at their
// entries, at most; one nested deeper looks by path, so that no depth of
// tree runs the process out of descriptors.
constexpr int kMostHeld = 256;
int gHeld = 0;
} // namespace

Dir::Dir(const String& path) : path_(path)
{
    if (!path_.endsWith(L"/")) path_ += L'/';
    std::string native = nativePath(path);
    int fd = ::open(native.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        const int error = errno; // read before the allocation can touch it
        throw ZEL_NEW IOException(path, L"Open Directory Failed", error);
    }
    // The names straight from the kernel: no stream of the C library (and no
    // look at the directory that one takes), one call for many entries.
    alignas(dirent64) char buffer[32768];
    for (;;) {
        const long got = ::syscall(SYS_getdents64, fd, buffer, sizeof buffer);
        if (got == 0) break;
        if (got < 0) {
            const int error = errno;
            if (error == EINTR) continue;
            ::close(fd);
            throw ZEL_NEW IOException(path, L"Read Directory Failed", error);
        }
        for (long at = 0; at < got;) {
            const auto* e = reinterpret_cast<const dirent64*>(buffer + at);
            at += e->d_reclen;
            const char* n = e->d_name;
            if (n[0] == '.' && (n[1] == '\0' || (n[1] == '.' && n[2] == '\0'))) continue;
            order_.push_back(static_cast<uint64_t>(names_.size()) << 8 | e->d_type);
            names_.append(n, std::strlen(n) + 1);
        }
    }
    if (gHeld < kMostHeld) {
        fd_ = fd;
        ++gHeld;
    } else {
        struct stat st;
        if (::fstat(fd, &st) == 0) dev_ = st.st_dev, ino_ = st.st_ino, identified_ = true;
        ::close(fd);
        native_ = nativePath(path_);
    }
    const char* base = names_.data();
    std::sort(order_.begin(), order_.end(), [base](uint64_t a, uint64_t b) { return std::strcmp(base + (a >> 8), base + (b >> 8)) < 0; });
    above_ = gInnermost;
    gInnermost = this;
}

Dir::~Dir()
{
    if (fd_ >= 0) ::close(fd_), --gHeld;
    // In a walk directories close in the reverse order of opening, but one that
    // closes out of turn must not stay in the chain of those still open.
    for (Dir** link = &gInnermost; *link; link = &(*link)->above_) {
        if (*link == this) {
            *link = above_;
            break;
        }
    }
}

bool Dir::isOpenAbove(dev_t dev, ino_t ino) const
{
    for (const Dir* d = this; d; d = d->above_) {
        struct stat st;
        if (!d->identified_ && ::fstat(d->fd_, &st) == 0) d->dev_ = st.st_dev, d->ino_ = st.st_ino, d->identified_ = true;
        if (d->identified_ && d->dev_ == dev && d->ino_ == ino) return true;
    }
    return false;
}

FileFacts Dir::examine(const Entry& entry) const { return entry.examined_ ? entry.facts_ : lookAt(entry.native_); }

FileFacts Dir::lookAt(const char* name) const
{
    return fd_ >= 0 ? Files::examine(fd_, name) : Files::examine(AT_FDCWD, (native_ + name).c_str());
}

bool Dir::read(Entry& entry)
{
    while (next_ < order_.size()) {
        uint64_t item = order_[next_++];
        const char* name = names_.data() + (item >> 8);
        unsigned char type = static_cast<unsigned char>(item & 0xFF);
        entry.name_ = fromNativePath(name);
        entry.native_ = name;
        entry.dir_ = type == DT_DIR;
        entry.examined_ = type == DT_LNK || type == DT_UNKNOWN;
        if (entry.examined_) {
            entry.facts_ = lookAt(name);
            if (entry.facts_.known() && S_ISDIR(entry.facts_.mode)) {
                if (isOpenAbove(entry.facts_.device, entry.facts_.inode)) {
                    ZEL_TRACE(L"Link to a directory above skipped [%ls%ls]\n", path_, entry.name_);
                    continue;
                }
                entry.dir_ = true;
            }
        }
        return true;
    }
    return false;
}

} // namespace ZELd
