// A shared library loaded at run time by its file name.
#pragma once

#include <utility>

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

    // A second, independent copy of this library: its own code and its own
    // globals (locks included), loaded from an in-memory copy of its file, so
    // that threads working in different copies never wait for each other.
    // Throws DllException when the copy cannot be made.
    SharedLibrary* loadCopy() const;

    // The address of a function; throws DllException when it is missing.
    void* symbol(const char* name) const;
    const String& name() const { return name_; }

private:
    SharedLibrary(String name, void* handle) : name_(std::move(name)), handle_(handle) {}

    String name_;
    void* handle_;
};

} // namespace ZELd
