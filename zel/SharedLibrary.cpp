#define ZEL_SOURCE "zel/SharedLibrary"
#include "zel/SharedLibrary.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <mutex>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include "zel/Exception.h"
#include "zel/FileName.h"

namespace ZELd {

namespace {
String loaderMessage()
{
    const char* m = ::dlerror();
    return m ? fromNativePath(m) : String(L"unknown error");
}
// The loader serialises loads and unloads behind a lock of its own, which
// ThreadSanitizer cannot see: threads that load and unload their own copies
// take this one too, so that its bookkeeping is not reported as a race.
std::mutex& loaderLock()
{
    static std::mutex lock;
    return lock;
}

// Copies the whole of one open file into another.
bool copyWhole(int from, int to)
{
    struct stat st;
    if (::fstat(from, &st) != 0) return false;
    for (off_t left = st.st_size; left > 0;) {
        const ssize_t n = ::sendfile(to, from, nullptr, static_cast<size_t>(left));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        left -= n;
    }
    return true;
}
} // namespace

SharedLibrary::SharedLibrary(const char* fileName) : name_(fromNativePath(fileName))
{
    std::lock_guard<std::mutex> guard(loaderLock());
    handle_ = ::dlopen(fileName, RTLD_NOW | RTLD_LOCAL);
    if (!handle_) throw ZEL_NEW DllException(name_, loaderMessage());
}

SharedLibrary::~SharedLibrary()
{
    std::lock_guard<std::mutex> guard(loaderLock());
    ::dlclose(handle_);
}

SharedLibrary* SharedLibrary::loadCopy() const
{
    // The loader shares a library among all who load the same file (by device
    // and inode), so the copy must be a file of its own. An anonymous memory
    // file leaves nothing behind, whatever happens to the process.
    const link_map* map = nullptr;
    if (::dlinfo(handle_, RTLD_DI_LINKMAP, &map) != 0 || !map || !map->l_name || !*map->l_name)
        throw ZEL_NEW DllException(name_, loaderMessage());
    const int original = ::open(map->l_name, O_RDONLY | O_CLOEXEC);
    if (original < 0) {
        const int error = errno; // read before the allocation can touch it
        throw ZEL_NEW DllException(name_, fromNativePath(std::strerror(error)));
    }
    const int copy = ::memfd_create("library copy", MFD_CLOEXEC);
    const bool copied = copy >= 0 && copyWhole(original, copy);
    const int error = errno;
    ::close(original);
    if (!copied) {
        if (copy >= 0) ::close(copy);
        throw ZEL_NEW DllException(name_, fromNativePath(std::strerror(error)));
    }
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", copy);
    void* handle = nullptr;
    {
        std::lock_guard<std::mutex> guard(loaderLock());
        handle = ::dlopen(path, RTLD_NOW | RTLD_LOCAL);
    }
    ::close(copy); // the loader's mapping keeps the copy
    if (!handle) throw ZEL_NEW DllException(name_, loaderMessage());
    return ZEL_NEW SharedLibrary(name_, handle);
}

void* SharedLibrary::symbol(const char* name) const
{
    ::dlerror();
    void* p = ::dlsym(handle_, name);
    if (!p) throw ZEL_NEW DllException(name_, loaderMessage());
    return p;
}

} // namespace ZELd
