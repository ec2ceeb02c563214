#define ZEL_SOURCE "zel/SharedLibrary"
#include "zel/SharedLibrary.h"

#include <dlfcn.h>

#include "zel/Exception.h"
#include "zel/FileName.h"

namespace ZELd {

namespace {
String loaderMessage()
{
    const char* m = ::dlerror();
    return m ? fromNativePath(m) : String(L"unknown error");
}
} // namespace

SharedLibrary::SharedLibrary(const char* fileName) : name_(fromNativePath(fileName))
{
    handle_ = ::dlopen(fileName, RTLD_NOW | RTLD_LOCAL);
    if (!handle_) throw ZEL_NEW DllException(name_, loaderMessage());
}

SharedLibrary::~SharedLibrary() { ::dlclose(handle_); }

void* SharedLibrary::symbol(const char* name) const
{
    ::dlerror();
    void* p = ::dlsym(handle_, name);
    if (!p) throw ZEL_NEW DllException(name_, loaderMessage());
    return p;
}

} // namespace ZELd
