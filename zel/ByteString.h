// Bytes held as they came from a file or a tag.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

namespace ZELd {

class ByteString {
public:
    ByteString() = default;
    ByteString(const char* p, size_t n) : b_(p, n) {}

    // Number of bytes before the first zero byte, at most max.
    static size_t length(const char* p, size_t max)
    {
        const void* z = max ? std::memchr(p, 0, max) : nullptr;
        return z ? static_cast<size_t>(static_cast<const char*>(z) - p) : max;
    }

    size_t length() const { return b_.size(); }
    bool isEmpty() const { return b_.empty(); }
    const char* data() const { return b_.data(); }
    void assign(const char* p, size_t n) { b_.assign(p, n); }
    friend bool operator==(const ByteString& a, const ByteString& b) { return a.b_ == b.b_; }

private:
    std::string b_;
};

} // namespace ZELd
