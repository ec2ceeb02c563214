// Wide text (UTF-32 wchar_t), the program's one text type.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "zel/Format.h"

namespace ZELd {

class ByteString;

class String {
public:
    static constexpr size_t npos = static_cast<size_t>(-1);

    String() = default;
    String(const wchar_t* s) : s_(s ? s : L"") {}
    String(const wchar_t* s, size_t n) : s_(s, n) {}
    String(std::wstring s) : s_(std::move(s)) {}
    String(std::wstring_view s) : s_(s) {}

    size_t length() const { return s_.size(); }
    bool isEmpty() const { return s_.empty(); }
    const wchar_t* c_str() const { return s_.c_str(); }
    wchar_t operator[](size_t i) const { return i < s_.size() ? s_[i] : L'\0'; }
    const std::wstring& str() const { return s_; }
    std::wstring& str() { return s_; }

    template <class... A>
    static String format(const wchar_t* fmt, const A&... args)
    {
        String r;
        formatAppend(r.s_, fmt, args...);
        return r;
    }

    static String valueOf(bool v) { return String(v ? L"true" : L"false"); }
    static String valueOf(int v) { return String(std::to_wstring(v)); }
    static String valueOf(unsigned v) { return String(std::to_wstring(v)); }
    static String valueOf(long v) { return String(std::to_wstring(v)); }
    static String valueOf(unsigned long v) { return String(std::to_wstring(v)); }
    static String valueOf(long long v) { return String(std::to_wstring(v)); }
    static String valueOf(unsigned long long v) { return String(std::to_wstring(v)); }

    // Text made of bytes of unknown kind: valid UTF-8 without control
    // characters (other than tab and line breaks) is taken as such; otherwise
    // every byte becomes its Latin-1 character when printable and "." when not.
    // At most max characters.
    static String tryString(const char* bytes, size_t n, size_t max);
    static String tryString(const ByteString& bytes, size_t max);

    // Exact comparison of at most count characters (strncmp-like).
    int compare(const wchar_t* other, size_t count) const;
    int compare(const String& other) const { return s_.compare(other.s_); }
    int compareNoCase(const String& other) const;
    bool endsWith(const wchar_t* suffix) const;
    bool startsWith(const wchar_t* prefix) const;

    String toLowerCase() const;
    // Drops characters up to U+0020 (blanks and control characters) at both ends.
    String trim() const;

    // Regular expressions (PCRE2). ignoreCase matches without regard to case.
    // Position of the first match, or npos.
    size_t search(const wchar_t* pattern, bool ignoreCase) const;
    // Text of the first match, or empty.
    String substring(const wchar_t* pattern, bool ignoreCase) const;
    // Every match (at most max of them) replaced by replacement, taken literally.
    String replace_r(const wchar_t* pattern, const wchar_t* replacement, bool ignoreCase, size_t max) const;

    String substring(size_t from) const { return from < s_.size() ? String(s_.substr(from)) : String(); }
    String substring(size_t from, size_t count) const { return from < s_.size() ? String(s_.substr(from, count)) : String(); }
    size_t indexOf(wchar_t c, size_t from = 0) const;

    String& assign(wchar_t c, size_t count)
    {
        s_.assign(count, c);
        return *this;
    }

    String& operator+=(const String& o)
    {
        s_ += o.s_;
        return *this;
    }
    String& operator+=(const wchar_t* o)
    {
        s_ += o;
        return *this;
    }
    String& operator+=(wchar_t c)
    {
        s_ += c;
        return *this;
    }
    friend String operator+(const String& a, const String& b) { return String(a.s_ + b.s_); }
    friend String operator+(const String& a, const wchar_t* b) { return String(a.s_ + b); }
    friend String operator+(const wchar_t* a, const String& b) { return String(a + b.s_); }
    friend bool operator==(const String& a, const String& b) { return a.s_ == b.s_; }
    friend bool operator==(const String& a, const wchar_t* b) { return a.s_ == b; }
    friend bool operator!=(const String& a, const String& b) { return a.s_ != b.s_; }
    friend bool operator<(const String& a, const String& b) { return a.s_ < b.s_; }

private:
    std::wstring s_;
};

} // namespace ZELd
