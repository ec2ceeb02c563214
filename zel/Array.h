// Lists: PointerArray owns the objects it points at; StringArray holds text.
#pragma once

#include <cstddef>
#include <vector>

#include "zel/Debug.h"
#include "zel/String.h"

namespace ZELd {

// Owns its elements: they are deleted (through their virtual destructors)
// by clear() and by the array's destructor.
template <class T>
class PointerArray {
public:
    PointerArray() = default;
    PointerArray(const PointerArray&) = delete;
    PointerArray& operator=(const PointerArray&) = delete;
    ~PointerArray() { clear(); }

    size_t size() const { return items_.size(); }
    bool isEmpty() const { return items_.empty(); }
    // Null, after an assertion, for an index out of range.
    T* operator[](size_t index) const
    {
        if (index >= items_.size()) {
            ZELDebugAssert("zel/Array", __LINE__, "_index < __count");
            return nullptr;
        }
        return items_[index];
    }
    void add(T* item) { items_.push_back(item); }
    void clear()
    {
        for (T* item : items_) delete item;
        items_.clear();
    }
    auto begin() const { return items_.begin(); }
    auto end() const { return items_.end(); }

private:
    std::vector<T*> items_;
};

class StringArray {
public:
    size_t size() const { return items_.size(); }
    bool isEmpty() const { return items_.empty(); }
    // The empty text, after an assertion, for an index out of range.
    const String& operator[](size_t index) const;
    void add(const String& s) { items_.push_back(s); }
    // The values separated by ", ".
    String toString() const;

private:
    std::vector<String> items_;
};

} // namespace ZELd
