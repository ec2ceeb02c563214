// Text the end-to-end reports do not pin down: what each decoder refuses,
// UTF-16 byte-order marks and surrogates, tryString, trim and dates.
#include <gtest/gtest.h>

#include <string>

#include "zel/DateTime.h"
#include "zel/Decoders.h"
#include "zel/Exception.h"

using namespace ZELd;
using namespace std::string_literals;

namespace {

// The decoded text, or "refused" when the decoder throws CharsetConvertException.
template <class D>
std::wstring decoded(const D& decoder, const std::string& bytes)
{
    try {
        return decoder.decode(bytes.data(), bytes.size()).str();
    } catch (CharsetConvertException* e) {
        e->destroy();
        return L"refused";
    }
}

TEST(Text, DecodersTryStringTrimAndDates)
{
    EXPECT_EQ(decoded(AsciiDecoder(), "ab\x7F"), L"ab\x7F");
    EXPECT_EQ(decoded(AsciiDecoder(), "ab\x80"), L"refused");
    EXPECT_EQ(decoded(Latin1Decoder(), "\x80\xFF"), L"\x80\xFF");
    const struct {
        std::string bytes;
        std::wstring text;
    } utf8[] = {
        {"a\0b"s, L"a\0b"s},
        {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF", L"\x80\x7FF\x800\xD7FF\xFFFF"},
        {"\xF4\x8F\xBF\xBF", L"\U0010FFFF"},
        // overlong, surrogates, above U+10FFFF, stray, truncated, bad continuation
        {"\xC0\x80", L"refused"},
        {"\xE0\x9F\xBF", L"refused"},
        {"\xF0\x8F\xBF\xBF", L"refused"},
        {"\xED\xA0\x80", L"refused"},
        {"\xF4\x90\x80\x80", L"refused"},
        {"\xF8\x88\x80\x80\x80", L"refused"},
        {"\x80", L"refused"},
        {"ok\xC3", L"refused"},
        {"\xF0\x9F\x98", L"refused"},
        {"\xC3\x41", L"refused"},
    };
    for (const auto& c : utf8) EXPECT_EQ(decoded(UTF8Decoder(), c.bytes), c.text) << testing::PrintToString(c.bytes);
    const struct {
        int order;
        std::string bytes;
        std::wstring text;
    } utf16[] = {
        {1234, "A\0B\0"s, L"AB"},
        {4321, "\0A\0B"s, L"AB"},
        {4321,
         "\xFF\xFE"
         "A\0"s,
         L"A"},
        {1234, "\xFE\xFF\0A"s, L"A"}, // a leading mark chooses the order
        {1234, "A\0\xFF\xFE"s, L"A\xFEFF"},
        {1234, "A\0B"s, L"A"},
        {1234, "\x3D\xD8\x00\xDE"s, L"\U0001F600"},
        {4321, "\xD8\x3D\xDE\x00"s, L"\U0001F600"},
        {1234, "\x3D\xD8\x41\0"s,
         L"\xFFFD"
         L"A"},
        {1234, "\x00\xDE\x41\0"s,
         L"\xFFFD"
         L"A"},
        {1234, "\x3D\xD8\0"s, L"\xFFFD"},
    };
    for (const auto& c : utf16) EXPECT_EQ(decoded(UTF16Decoder(c.order), c.bytes), c.text) << testing::PrintToString(c.bytes);
    const struct {
        std::string bytes;
        size_t max;
        const wchar_t* out;
    } tries[] = {
        {"caf\xC3\xA9 \xE2\x82\xAC", 100, L"café €"},
        {"tab\there\r\n", 100, L"tab\there\r\n"},
        {"a\0b"s, 100, L"a.b"},
        {"caf\xE9", 100, L"café"},
        {"a\tb\x01\r\n", 100, L"a.b..."},
        {"\x80\x9F\xA0\x7F", 100, L"..\xA0."},
        {"ab\x01"
         "def",
         4, L"ab.d"},
        {"\xC3\xA9\xE2\x82\xAC"
         "x",
         2, L"é€"},
        {"ZZ\xC3\xA9\xFF", 3, L"ZZ\u00C3"},
        {"\xC3\xA9"
         "a\x01",
         1, L"\u00C3"}, // judged on every byte, also on those not shown
    };
    for (const auto& c : tries) EXPECT_EQ(String::tryString(c.bytes.data(), c.bytes.size(), c.max).str(), c.out) << c.bytes;
    EXPECT_EQ(String(L"\t\x01 a b\r\n ").trim().str(), L"a b");
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    EXPECT_EQ(DateTime().assign(1700000000123LL).toString().str(), L"2023-11-14 22:13:20.123");
}

} // namespace
