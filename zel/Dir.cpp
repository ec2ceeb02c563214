#define ZEL_SOURCE "zel/Dir"
#include "zel/Dir.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/FileName.h"

namespace ZELd {

namespace {
Dir* gInnermost = nullptr; // the walk's open directories form a chain
}

Dir::Dir(const String& path) : path_(path)
{
    if (!path_.endsWith(L"/")) path_ += L'/';
    std::string native = nativePath(path);
    int fd = ::open(native.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        const int error = errno; // read before the allocation can touch it
        throw ZEL_NEW IOException(path, L"Open Directory Failed", error);
    }
    struct stat st;
    if (::fstat(fd, &st) == 0) {
        dev_ = st.st_dev;
        ino_ = st.st_ino;
    }
    DIR* d = ::fdopendir(fd);
    if (!d) {
        int error = errno;
        ::close(fd);
        throw ZEL_NEW IOException(path, L"Open Directory Failed", error);
    }
    for (;;) {
        errno = 0;
        struct dirent* e = ::readdir(d);
        if (!e) {
            if (errno != 0) {
                int error = errno;
                ::closedir(d);
                throw ZEL_NEW IOException(path, L"Read Directory Failed", error);
            }
            break;
        }
        const char* n = e->d_name;
        if (n[0] == '.' && (n[1] == '\0' || (n[1] == '.' && n[2] == '\0'))) continue;
        order_.push_back(static_cast<uint64_t>(names_.size()) << 8 | e->d_type);
        names_.append(n, std::strlen(n) + 1);
    }
    ::closedir(d);
    const char* base = names_.data();
    std::sort(order_.begin(), order_.end(), [base](uint64_t a, uint64_t b) { return std::strcmp(base + (a >> 8), base + (b >> 8)) < 0; });
    above_ = gInnermost;
    gInnermost = this;
}

Dir::~Dir()
{
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
    for (const Dir* d = this; d; d = d->above_)
        if (d->dev_ == dev && d->ino_ == ino) return true;
    return false;
}

bool Dir::peekRegularFile(size_t ahead, String& name) const
{
    if (ahead >= order_.size() - next_) return false;
    const uint64_t item = order_[next_ + ahead];
    if ((item & 0xFF) != DT_REG) return false;
    name = fromNativePath(names_.data() + (item >> 8));
    return true;
}

bool Dir::read(Entry& entry)
{
    while (next_ < order_.size()) {
        uint64_t item = order_[next_++];
        const char* name = names_.data() + (item >> 8);
        unsigned char type = static_cast<unsigned char>(item & 0xFF);
        entry.name_ = fromNativePath(name);
        entry.dir_ = type == DT_DIR;
        if (type == DT_LNK || type == DT_UNKNOWN) {
            struct stat st;
            std::string full = nativePath(path_) + name;
            if (::stat(full.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
                if (isOpenAbove(st.st_dev, st.st_ino)) {
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
