#define ZEL_SOURCE "zel/Files"
#include "zel/Files.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <iterator>

#include "zel/Exception.h"
#include "zel/FileName.h"

namespace ZELd {

namespace {

long long millis(const struct statx_timestamp& t) { return t.tv_sec * 1000LL + t.tv_nsec / 1000000; }

} // namespace

FileFacts Files::examine(int dirFd, const char* nativeName)
{
    constexpr unsigned kMask = STATX_TYPE | STATX_MODE | STATX_INO | STATX_SIZE | STATX_ATIME | STATX_MTIME | STATX_CTIME | STATX_BTIME;
    FileFacts facts;
    struct statx st;
    if (::statx(dirFd, nativeName, 0, kMask, &st) != 0) {
        facts.linkError = errno;
        if ((errno != ENOENT && errno != ELOOP) || ::statx(dirFd, nativeName, AT_SYMLINK_NOFOLLOW, kMask, &st) != 0) {
            facts.error = errno;
            return facts;
        }
    }
    facts.size = st.stx_size;
    facts.access = millis(st.stx_atime);
    facts.modification = millis(st.stx_mtime);
    facts.creation = (st.stx_mask & STATX_BTIME) ? millis(st.stx_btime) : millis(st.stx_ctime);
    facts.mode = st.stx_mode;
    facts.device = makedev(st.stx_dev_major, st.stx_dev_minor);
    facts.inode = st.stx_ino;
    return facts;
}

FileFacts Files::examine(const String& path) { return examine(AT_FDCWD, nativePath(path).c_str()); }

bool Files::onNetwork(const String& path)
{
    // statfs's f_type of the file systems that are reached over a network
    // or served by a process (linux/magic.h and the file systems' own).
    static constexpr unsigned long kRemote[] = {
        0x6969,     // NFS
        0x517B,     // SMB
        0xFF534D42, // CIFS
        0xFE534D42, // SMB2
        0x65735546, // FUSE
        0x01021997, // 9P
        0x00C36400, // Ceph
        0x5346414F, // AFS
        0x6B414653, // kAFS
        0x73757245, // Coda
        0x564C,     // NCP
        0x0BD00BD0, // Lustre
        0x47504653, // GPFS
    };
    struct statfs fs;
    if (::statfs(nativePath(path).c_str(), &fs) != 0) return false;
    const unsigned long type = static_cast<unsigned long>(fs.f_type) & 0xFFFFFFFFul;
    return std::find(std::begin(kRemote), std::end(kRemote), type) != std::end(kRemote);
}

bool Files::isDirectory(const String& path)
{
    struct stat st;
    return ::stat(nativePath(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

String Files::dirname(const String& path)
{
    size_t slash = path.str().rfind(L'/');
    return slash == std::wstring::npos ? String() : path.substring(0, slash + 1);
}

String Files::basename(const String& path)
{
    size_t slash = path.str().rfind(L'/');
    return slash == std::wstring::npos ? path : path.substring(slash + 1);
}

} // namespace ZELd
