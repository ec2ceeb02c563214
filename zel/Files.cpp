#define ZEL_SOURCE "zel/Files"
#include "zel/Files.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

#include "zel/Exception.h"
#include "zel/FileName.h"

namespace ZELd {

namespace {

long long millis(const struct statx_timestamp& t) { return t.tv_sec * 1000LL + t.tv_nsec / 1000000; }

// statx following links, or of the link itself when it dangles.
bool examine(const std::string& native, unsigned mask, struct statx& st)
{
    if (::statx(AT_FDCWD, native.c_str(), 0, mask, &st) == 0) return true;
    if (errno != ENOENT && errno != ELOOP) return false;
    return ::statx(AT_FDCWD, native.c_str(), AT_SYMLINK_NOFOLLOW, mask, &st) == 0;
}

} // namespace

bool Files::isDirectory(const String& path)
{
    struct stat st;
    return ::stat(nativePath(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

unsigned long long Files::size(const String& path)
{
    struct statx st;
    const std::string native = nativePath(path);
    if (!examine(native, STATX_SIZE, st)) {
        const int error = errno; // read before the allocation can touch it
        throw ZEL_NEW IOException(path, L"Size Failed", error);
    }
    return st.stx_size;
}

bool Files::time(const String& path, long long& access, long long& modification, long long& creation)
{
    struct statx st;
    if (!examine(nativePath(path), STATX_ATIME | STATX_MTIME | STATX_CTIME | STATX_BTIME, st)) return false;
    access = millis(st.stx_atime);
    modification = millis(st.stx_mtime);
    creation = (st.stx_mask & STATX_BTIME) ? millis(st.stx_btime) : millis(st.stx_ctime);
    return true;
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
