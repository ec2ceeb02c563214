// The base of the program's classes.
#pragma once

#include <cstddef>
#include <typeinfo>

#include "zel/String.h"

namespace ZELd {

class Writer;

class Object {
public:
    Object() = default;
    Object(const Object&) = default;
    Object& operator=(const Object&) = default;
    virtual ~Object() = default;

    virtual String toString() const;
    // Writes toString() and a line end (defined with the writers, which are objects themselves).
    virtual void dump(Writer& out) const;
    // Deletes the object (used for caught exceptions).
    virtual void destroy();
    virtual const std::type_info& typeInfo() const;

    // Objects are made with their source: new (ZEL_HERE) Type(...), or ZEL_NEW Type(...).
    static void* operator new(size_t size, const char* path, int line);
    static void operator delete(void* block, const char* path, int line);
    static void operator delete(void* block);
    static void* operator new(size_t size) = delete;
};

} // namespace ZELd

#define ZEL_NEW new (ZEL_SOURCE, __LINE__)
