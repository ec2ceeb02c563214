#define ZEL_SOURCE "zel/Decoders"
#include "zel/Decoders.h"

#include "zel/Exception.h"
#include "zel/Utf8.h"

namespace ZELd {

String AsciiDecoder::decode(const char* p, size_t n) const
{
    std::wstring out(n, L'\0');
    for (size_t i = 0; i < n; ++i) {
        unsigned char b = static_cast<unsigned char>(p[i]);
        if (b > 0x7F) throw ZEL_NEW CharsetConvertException(String::format(L"Invalid ASCII byte %02X at offset %zd", b, i));
        out[i] = static_cast<wchar_t>(b);
    }
    return String(std::move(out));
}

String Latin1Decoder::decode(const char* p, size_t n) const
{
    std::wstring out(n, L'\0');
    for (size_t i = 0; i < n; ++i) out[i] = static_cast<wchar_t>(static_cast<unsigned char>(p[i]));
    return String(std::move(out));
}

String UTF8Decoder::decode(const char* p, size_t n) const
{
    std::wstring out;
    out.reserve(n);
    const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
    for (size_t i = 0; i < n;) {
        char32_t c;
        size_t len = decodeUtf8Char(u + i, n - i, c);
        if (len == 0) throw ZEL_NEW CharsetConvertException(String::format(L"Invalid UTF-8 byte %02X at offset %zd", u[i], i));
        out.push_back(static_cast<wchar_t>(c));
        i += len;
    }
    return String(std::move(out));
}

String UTF16Decoder::decode(const char* p, size_t n) const
{
    const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
    bool big = bigEndian_;
    size_t i = 0;
    if (n >= 2 && ((u[0] == 0xFF && u[1] == 0xFE) || (u[0] == 0xFE && u[1] == 0xFF))) {
        big = u[0] == 0xFE;
        i = 2;
    }
    auto unit = [&](size_t at) -> char32_t { return big ? (u[at] << 8 | u[at + 1]) : (u[at + 1] << 8 | u[at]); };
    std::wstring out;
    out.reserve((n - i) / 2);
    for (; i + 1 < n; i += 2) {
        char32_t c = unit(i);
        if (c >= 0xD800 && c <= 0xDBFF && i + 3 < n) {
            char32_t low = unit(i + 2);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                out.push_back(static_cast<wchar_t>(0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00)));
                i += 2;
                continue;
            }
        }
        if (c >= 0xD800 && c <= 0xDFFF) c = 0xFFFD;
        out.push_back(static_cast<wchar_t>(c));
    }
    return String(std::move(out));
}

} // namespace ZELd
