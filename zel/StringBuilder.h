// Builds a String piece by piece.
#pragma once

#include "zel/String.h"

namespace ZELd {

class StringBuilder {
public:
    explicit StringBuilder(size_t capacity = 16) { s_.reserve(capacity); }

    StringBuilder& append(const wchar_t* s)
    {
        if (s) s_ += s;
        return *this;
    }
    StringBuilder& append(const String& s)
    {
        s_ += s.str();
        return *this;
    }
    StringBuilder& append(wchar_t c)
    {
        s_ += c;
        return *this;
    }
    template <class... A>
    StringBuilder& format(const wchar_t* fmt, const A&... args)
    {
        formatAppend(s_, fmt, args...);
        return *this;
    }
    template <class T>
    StringBuilder& operator<<(const T& v)
    {
        return append(v);
    }

    size_t length() const { return s_.size(); }
    String toString() const { return String(s_); }

private:
    std::wstring s_;
};

} // namespace ZELd
