// printf-style formatting of wide text with typed arguments.
//
// The conversions follow swprintf (%ls, %s, %c, %d, %i, %u, %x, %X, %o, %%,
// flags "-0+ #", width, precision, length modifiers hh h l ll z j t), but the
// arguments are passed as typed values, so a wrong argument can never read
// past the argument list. Numbers keep the width they had after the usual
// integer promotion: a signed char -128 printed with %x gives ffffff80.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace ZELd {

// Wide text kept as one run of characters of known length, such as String:
// formatted from its characters where they are, without a copy.
template <class T>
concept WideCharacterRun = std::is_same_v<decltype(std::declval<const T&>().c_str()), const wchar_t*> &&
    std::is_convertible_v<decltype(std::declval<const T&>().length()), size_t>;

struct FormatArg {
    enum Kind { Signed, Unsigned, WideText, NarrowText, Pointer };
    Kind kind;
    unsigned bits = 32; // width after integer promotion: 32 or 64
    long long i = 0;
    unsigned long long u = 0;
    const wchar_t* ws = nullptr;
    const char* s = nullptr;
    size_t len = 0;

    template <class T>
    requires std::is_integral_v<T> FormatArg(T v)
    {
        bits = sizeof(T) > 4 ? 64 : 32;
        if constexpr (std::is_same_v<T, bool>) {
            kind = Signed;
            i = v ? 1 : 0;
        } else if constexpr (std::is_signed_v<T> || std::is_same_v<T, wchar_t>) {
            kind = Signed;
            i = static_cast<long long>(v);
        } else {
            kind = Unsigned;
            u = static_cast<unsigned long long>(v);
        }
        if (kind == Signed) u = static_cast<unsigned long long>(i);
    }
    FormatArg(const wchar_t* v) : kind(WideText), ws(v ? v : L"(null)"), len(std::char_traits<wchar_t>::length(ws)) {}
    FormatArg(const std::wstring& v) : kind(WideText), ws(v.data()), len(v.size()) {}
    FormatArg(std::wstring_view v) : kind(WideText), ws(v.data()), len(v.size()) {}
    template <WideCharacterRun T>
    FormatArg(const T& v) : kind(WideText), ws(v.c_str()), len(v.length())
    {}
    FormatArg(const char* v) : kind(NarrowText), s(v ? v : "(null)"), len(std::char_traits<char>::length(s)) {}
    FormatArg(const void* v) : kind(Pointer), bits(64), u(reinterpret_cast<unsigned long long>(v)) {}
};

// Appends the formatted text to out.
void formatInto(std::wstring& out, const wchar_t* format, const FormatArg* args, size_t count);

template <class... A>
void formatAppend(std::wstring& out, const wchar_t* format, const A&... args)
{
    if constexpr (sizeof...(A) == 0) {
        formatInto(out, format, nullptr, 0);
    } else {
        const FormatArg list[] = {FormatArg(args)...};
        formatInto(out, format, list, sizeof...(A));
    }
}

} // namespace ZELd
