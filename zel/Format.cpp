#include "zel/Format.h"

#include <algorithm>

#include "zel/Utf8.h"

namespace ZELd {

namespace {

struct Directive {
    bool left = false, zero = false, plus = false, space = false, alt = false;
    int width = 0;
    int precision = -1;
    int narrow = 0; // 8 for hh, 16 for h: the value is cut to that width
};

void pad(std::wstring& out, size_t n, wchar_t c) { out.append(n, c); }

// Writes body (already converted) with sign/prefix and padding.
void emit(std::wstring& out, const Directive& directive, std::wstring_view prefix, std::wstring_view body, bool numeric)
{
    size_t len = prefix.size() + body.size();
    size_t fill = directive.width > 0 && static_cast<size_t>(directive.width) > len ? directive.width - len : 0;
    if (directive.left) {
        out.append(prefix);
        out.append(body);
        pad(out, fill, L' ');
    } else if (directive.zero && numeric && directive.precision < 0) {
        out.append(prefix);
        pad(out, fill, L'0');
        out.append(body);
    } else {
        pad(out, fill, L' ');
        out.append(prefix);
        out.append(body);
    }
}

void digits(std::wstring& body, unsigned long long v, unsigned base, bool upper)
{
    wchar_t tmp[72];
    size_t n = 0;
    const wchar_t* set = upper ? L"0123456789ABCDEF" : L"0123456789abcdef";
    do {
        tmp[n++] = set[v % base];
        v /= base;
    } while (v);
    while (n) body.push_back(tmp[--n]);
}

unsigned long long maskTo(unsigned long long v, unsigned bits) { return bits >= 64 ? v : (v & ((1ULL << bits) - 1)); }

void number(std::wstring& out, const Directive& directive, const FormatArg& a, wchar_t conv)
{
    std::wstring prefix, body;
    unsigned bits = a.bits;
    unsigned long long raw = a.kind == FormatArg::Signed ? static_cast<unsigned long long>(a.i) : a.u;
    if (directive.narrow) bits = directive.narrow;
    if (conv == L'd' || conv == L'i') {
        long long v;
        if (bits < 64) {
            // Reinterpret the low bits as a signed number of that width.
            unsigned long long m = maskTo(raw, bits);
            unsigned long long sign = 1ULL << (bits - 1);
            v = (m & sign) ? static_cast<long long>(m) - static_cast<long long>(1ULL << bits) : static_cast<long long>(m);
        } else {
            v = static_cast<long long>(raw);
        }
        unsigned long long mag = v < 0 ? 0ULL - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
        if (v < 0) prefix = L"-";
        else if (directive.plus) prefix = L"+";
        else if (directive.space) prefix = L" ";
        if (!(directive.precision == 0 && mag == 0)) digits(body, mag, 10, false);
    } else {
        unsigned long long v = maskTo(raw, bits);
        unsigned base = conv == L'o' ? 8 : (conv == L'u' ? 10 : 16);
        if (!(directive.precision == 0 && v == 0)) digits(body, v, base, conv == L'X');
        if (directive.alt && v != 0 && base == 16) prefix = conv == L'X' ? L"0X" : L"0x";
        if (directive.alt && base == 8 && (body.empty() || body[0] != L'0')) body.insert(body.begin(), L'0');
    }
    if (directive.precision > 0 && body.size() < static_cast<size_t>(directive.precision))
        body.insert(body.begin(), directive.precision - body.size(), L'0');
    emit(out, directive, prefix, body, true);
}

void text(std::wstring& out, const Directive& directive, const FormatArg& a)
{
    if (a.kind == FormatArg::WideText) {
        size_t n = a.len;
        if (directive.precision >= 0 && static_cast<size_t>(directive.precision) < n) n = directive.precision;
        emit(out, directive, L"", std::wstring_view(a.ws, n), false);
    } else if (a.kind == FormatArg::NarrowText) {
        std::wstring w = decodeUtf8Escaped(a.s, a.len);
        if (directive.precision >= 0 && static_cast<size_t>(directive.precision) < w.size()) w.resize(directive.precision);
        emit(out, directive, L"", w, false);
    } else {
        // A number given where text was asked for: show the number.
        std::wstring body;
        digits(body, a.kind == FormatArg::Signed ? static_cast<unsigned long long>(a.i) : a.u, 10, false);
        emit(out, directive, L"", body, false);
    }
}

// The flags, width, precision and length of a directive, p just past its "%";
// p is left at the conversion character.
Directive parseDirective(const wchar_t*& p)
{
    Directive directive;
    for (;; ++p) {
        if (*p == L'-') directive.left = true;
        else if (*p == L'0') directive.zero = true;
        else if (*p == L'+') directive.plus = true;
        else if (*p == L' ') directive.space = true;
        else if (*p == L'#') directive.alt = true;
        else break;
    }
    while (*p >= L'0' && *p <= L'9' && directive.width < 100000) directive.width = directive.width * 10 + (*p++ - L'0');
    if (*p == L'.') {
        ++p;
        directive.precision = 0;
        while (*p >= L'0' && *p <= L'9' && directive.precision < 100000) directive.precision = directive.precision * 10 + (*p++ - L'0');
    }
    if (*p == L'h') {
        directive.narrow = 16;
        if (*++p == L'h') {
            directive.narrow = 8;
            ++p;
        }
    } else {
        while (*p == L'l' || *p == L'z' || *p == L'j' || *p == L't' || *p == L'L' || *p == L'q') ++p;
    }
    return directive;
}

// Writes one argument by its conversion; false for a conversion this does not know.
bool convert(std::wstring& out, const Directive& directive, wchar_t conv, const FormatArg& a)
{
    switch (conv) {
    case L'd':
    case L'i':
    case L'u':
    case L'x':
    case L'X':
    case L'o':
        if (a.kind == FormatArg::Signed || a.kind == FormatArg::Unsigned || a.kind == FormatArg::Pointer) number(out, directive, a, conv);
        else text(out, directive, a);
        return true;
    case L's': text(out, directive, a); return true;
    case L'c': {
        wchar_t c = a.kind == FormatArg::Signed ? static_cast<wchar_t>(a.i) : static_cast<wchar_t>(a.u);
        emit(out, directive, L"", std::wstring_view(&c, 1), false);
        return true;
    }
    case L'p': {
        std::wstring body;
        digits(body, a.u, 16, false);
        emit(out, directive, L"0x", body, true);
        return true;
    }
    default: return false;
    }
}

} // namespace

void formatInto(std::wstring& out, const wchar_t* format, const FormatArg* args, size_t count)
{
    if (!format) return;
    // Room for the whole text at once: a long argument (a tag's value) then costs one block of its own
    // size, where growing by doubling would cost up to twice that. Texts count whole, even under a precision.
    size_t room = out.size() + std::char_traits<wchar_t>::length(format);
    for (size_t i = 0; i < count; ++i) room += args[i].len + 24; // a number takes at most 23 characters
    if (room > out.capacity()) out.reserve(std::max(room, 2 * out.capacity()));
    size_t next = 0;
    const wchar_t* p = format;
    while (*p) {
        if (*p != L'%') {
            const wchar_t* q = p;
            while (*q && *q != L'%') ++q;
            out.append(p, q - p);
            p = q;
            continue;
        }
        const wchar_t* start = p++;
        if (*p == L'%') {
            out.push_back(L'%');
            ++p;
            continue;
        }
        const Directive directive = parseDirective(p);
        const wchar_t conv = *p;
        if (!conv) {
            out.append(start); // a lone % at the end stays as written
            break;
        }
        ++p;
        if (next >= count) continue; // missing argument: nothing is printed for it
        if (convert(out, directive, conv, args[next])) ++next;
        else out.append(start, p - start); // unknown conversion: kept as text
    }
}

} // namespace ZELd
