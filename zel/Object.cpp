#include "zel/Object.h"

#include <new>

#include "zel/DebugAllocator.h"

namespace ZELd {

String Object::toString() const { return String::format(L"%s", typeInfo().name()); }

void Object::destroy() { delete this; }

const std::type_info& Object::typeInfo() const { return typeid(*this); }

void* Object::operator new(size_t size, const char* path, int line)
{
    void* p = ZELDebugMalloc(size, ZELAllocNew, path, line);
    if (!p) throw std::bad_alloc();
    return p;
}

void Object::operator delete(void* block, const char* path, int line) { ZELDebugFree(block, ZELFreeDelete, path, line); }

void Object::operator delete(void* block) { ZELDebugFree(block, ZELFreeDelete, nullptr, 0); }

} // namespace ZELd
