#include "zel/Numbers.h"

#include <limits>

namespace ZELd {

namespace {

int digitValue(wchar_t c)
{
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'a' && c <= L'z') return c - L'a' + 10;
    if (c >= L'A' && c <= L'Z') return c - L'A' + 10;
    return 99;
}

bool parseUnsigned(const String& text, int radix, uint64_t max, uint64_t& out)
{
    if (radix < 2 || radix > 36) return false;
    const std::wstring& s = text.str();
    size_t i = 0;
    while (i < s.size() && (s[i] == L' ' || s[i] == L'\t')) ++i;
    if (i < s.size() && s[i] == L'+') ++i;
    uint64_t v = 0;
    bool any = false;
    for (; i < s.size(); ++i) {
        int d = digitValue(s[i]);
        if (d >= radix) break;
        any = true;
        if (v > (max - d) / radix) v = max;
        else v = v * radix + d;
    }
    if (any) out = v;
    return any;
}

} // namespace

uint32_t UInt32::parse(const String& text, int radix, uint32_t fallback)
{
    uint64_t v;
    return parseUnsigned(text, radix, std::numeric_limits<uint32_t>::max(), v) ? static_cast<uint32_t>(v) : fallback;
}

uint64_t UInt64::parse(const String& text, int radix, uint64_t fallback)
{
    uint64_t v;
    return parseUnsigned(text, radix, std::numeric_limits<uint64_t>::max(), v) ? v : fallback;
}

} // namespace ZELd
