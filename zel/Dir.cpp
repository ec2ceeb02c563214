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
#include <utility>

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

// Reads the names of the open directory fd, sorted in byte order, each
// with its d_type; 0, or the error that stopped the reading.
int readNames(int fd, std::string& names, std::vector<uint64_t>& order)
{
    // The names straight from the kernel: no stream of the C library (and no
    // look at the directory that one takes), one call for many entries.
    alignas(dirent64) char buffer[32768];
    for (;;) {
        const long got = ::syscall(SYS_getdents64, fd, buffer, sizeof buffer);
        if (got == 0) break;
        if (got < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        for (long at = 0; at < got;) {
            const auto* e = reinterpret_cast<const dirent64*>(buffer + at);
            at += e->d_reclen;
            const char* n = e->d_name;
            if (n[0] == '.' && (n[1] == '\0' || (n[1] == '.' && n[2] == '\0'))) continue;
            order.push_back(static_cast<uint64_t>(names.size()) << 8 | e->d_type);
            names.append(n, std::strlen(n) + 1);
        }
    }
    const char* base = names.data();
    std::sort(order.begin(), order.end(), [base](uint64_t a, uint64_t b) { return std::strcmp(base + (a >> 8), base + (b >> 8)) < 0; });
    return 0;
}

std::vector<std::string> subdirectoriesOf(const std::string& names, const std::vector<uint64_t>& order)
{
    std::vector<std::string> found;
    for (uint64_t item : order)
        if ((item & 0xFF) == DT_DIR) found.emplace_back(names.data() + (item >> 8));
    return found;
}

int openDirectory(const char* native) { return ::open(native, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }

} // namespace

Dir::Dir(const String& path) : path_(path)
{
    if (!path_.endsWith(L"/")) path_ += L'/';
    const int fd = openDirectory(nativePath(path).c_str());
    if (fd < 0) {
        const int error = errno; // read before the allocation can touch it
        throw ZEL_NEW IOException(path, L"Open Directory Failed", error);
    }
    if (const int error = readNames(fd, names_, order_)) {
        ::close(fd);
        throw ZEL_NEW IOException(path, L"Read Directory Failed", error);
    }
    hold(fd);
}

Dir::Dir(const String& path, Listing&& listing)
    : path_(path), names_(std::move(listing.names)), order_(std::move(listing.order)), looked_(std::move(listing.facts))
{
    if (!path_.endsWith(L"/")) path_ += L'/';
    hold(std::exchange(listing.fd, -1));
}

void Dir::hold(int fd)
{
    if (gHeld < kMostHeld) {
        fd_ = fd;
        ++gHeld;
    } else {
        struct stat st;
        if (::fstat(fd, &st) == 0) dev_ = st.st_dev, ino_ = st.st_ino, identified_ = true;
        ::close(fd);
        native_ = nativePath(path_);
    }
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

FileFacts Dir::examine(const Entry& entry) const { return entry.examined_ ? entry.facts_ : lookAt(entry.index_, entry.native_); }

FileFacts Dir::lookAt(size_t index, const char* name) const
{
    if (index < looked_.size()) return looked_[index];
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
        entry.index_ = next_ - 1;
        entry.dir_ = type == DT_DIR;
        entry.examined_ = type == DT_LNK || type == DT_UNKNOWN;
        if (entry.examined_) {
            entry.facts_ = lookAt(entry.index_, name);
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

Dir::Listing::Listing(Listing&& other) noexcept
    : fd(std::exchange(other.fd, -1)), names(std::move(other.names)), order(std::move(other.order)), facts(std::move(other.facts))
{}

Dir::Listing& Dir::Listing::operator=(Listing&& other) noexcept
{
    if (this != &other) {
        if (fd >= 0) ::close(fd);
        fd = std::exchange(other.fd, -1);
        names = std::move(other.names);
        order = std::move(other.order);
        facts = std::move(other.facts);
    }
    return *this;
}

Dir::Listing::~Listing()
{
    if (fd >= 0) ::close(fd);
}

bool Dir::Listing::read(const char* nativePath)
{
    fd = openDirectory(nativePath);
    if (fd < 0 || readNames(fd, names, order) != 0) return false;
    facts.resize(order.size());
    for (size_t i = 0; i < order.size(); ++i)
        if ((order[i] & 0xFF) != DT_DIR) facts[i] = Files::examine(fd, names.data() + (order[i] >> 8));
    return true;
}

std::vector<std::string> Dir::Listing::subdirectories() const { return subdirectoriesOf(names, order); }

std::vector<std::string> Dir::subdirectories() const { return subdirectoriesOf(names_, order_); }

} // namespace ZELd
