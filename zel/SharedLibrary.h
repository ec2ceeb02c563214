// A shared library loaded at run time by its file name.
#pragma once

#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class SharedLibrary : public Object {
public:
    // Throws DllException with the loader's message when the library cannot be loaded.
    explicit SharedLibrary(const char* fileName);
    ~SharedLibrary() override;
    SharedLibrary(const SharedLibrary&) = delete;
    SharedLibrary& operator=(const SharedLibrary&) = delete;

    // The address of a function; throws DllException when it is missing.
    void* symbol(const char* name) const;
    const String& name() const { return name_; }

private:
    String name_;
    void* handle_;
};

} // namespace ZELd
