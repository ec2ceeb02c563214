#include "zel/Utf8.h"

namespace ZELd {

void appendUtf8(std::string& out, const wchar_t* s, size_t n, EscapedBytes mode)
{
    for (size_t i = 0; i < n; ++i) {
        char32_t c = static_cast<char32_t>(s[i]);
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
            continue;
        }
        if (c >= 0xDC80 && c <= 0xDCFF && mode == EscapedBytes::Restore) {
            out.push_back(static_cast<char>(c - 0xDC00));
            continue;
        }
        if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) c = 0xFFFD;
        if (c < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        } else if (c < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (c >> 12)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (c >> 18)));
            out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        }
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

std::string toUtf8(const std::wstring& s, EscapedBytes mode)
{
    std::string out;
    out.reserve(s.size());
    appendUtf8(out, s.data(), s.size(), mode);
    return out;
}

size_t decodeUtf8Char(const unsigned char* p, size_t n, char32_t& out)
{
    if (n == 0) return 0;
    unsigned char b = p[0];
    if (b < 0x80) {
        out = b;
        return 1;
    }
    size_t len;
    char32_t c, min;
    if ((b & 0xE0) == 0xC0) {
        len = 2;
        c = b & 0x1F;
        min = 0x80;
    } else if ((b & 0xF0) == 0xE0) {
        len = 3;
        c = b & 0x0F;
        min = 0x800;
    } else if ((b & 0xF8) == 0xF0) {
        len = 4;
        c = b & 0x07;
        min = 0x10000;
    } else return 0;
    if (n < len) return 0;
    for (size_t i = 1; i < len; ++i) {
        if ((p[i] & 0xC0) != 0x80) return 0;
        c = (c << 6) | (p[i] & 0x3F);
    }
    if (c < min || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
    out = c;
    return len;
}

std::wstring decodeUtf8Escaped(const char* p, size_t n)
{
    std::wstring out;
    out.reserve(n);
    const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
    for (size_t i = 0; i < n;) {
        char32_t c;
        size_t len = decodeUtf8Char(u + i, n - i, c);
        if (len == 0) {
            out.push_back(static_cast<wchar_t>(0xDC00 + u[i]));
            ++i;
        } else {
            out.push_back(static_cast<wchar_t>(c));
            i += len;
        }
    }
    return out;
}

} // namespace ZELd
