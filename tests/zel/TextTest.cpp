// Text the end-to-end reports do not pin down: what each decoder refuses,
// UTF-16 byte-order marks and surrogates, tryString, trim and dates.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "support/ReportCapture.h"
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
    std::wstring text;
    const auto refused = testsupport::thrown<CharsetConvertException>([&] { text = decoder.decode(bytes.data(), bytes.size()).str(); });
    return refused ? L"refused" : text;
}

TEST(Text, DecodersTryStringTrimAndDates)
{
    EXPECT_EQ(decoded(AsciiDecoder(), "ab\x7F"), L"ab\x7F");
    EXPECT_EQ(decoded(AsciiDecoder(), "ab\x80"), L"refused");
    EXPECT_EQ(decoded(Latin1Decoder(), "\x80\xFF"), L"\x80\xFF");
    // Order 8: UTF-8; 1234 and 4321: UTF-16 in that byte order.
    const std::tuple<int, std::string, std::wstring> decodings[] = {
        {8, "a\0b"s, L"a\0b"s},
        {8, "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF", L"\x80\x7FF\x800\xD7FF\xFFFF"},
        {8, "\xF4\x8F\xBF\xBF", L"\U0010FFFF"},
        {1234, "A\0B\0"s, L"AB"},
        {4321, "\0A\0B"s, L"AB"},
        {4321, "\xFF\xFE" + "A\0"s, L"A"},
        {1234, "\xFE\xFF\0A"s, L"A"}, // a leading mark chooses the order
        {1234, "A\0\xFF\xFE"s, L"A\xFEFF"},
        {1234, "A\0B"s, L"A"},
        {1234, "\x3D\xD8\x00\xDE"s, L"\U0001F600"},
        {4321, "\xD8\x3D\xDE\x00"s, L"\U0001F600"},
        {1234, "\x3D\xD8\x41\0"s, L"\uFFFDA"},
        {1234, "\x00\xDE\x41\0"s, L"\uFFFDA"},
        {1234, "\x3D\xD8\0"s, L"\xFFFD"},
    };
    for (const auto& [order, bytes, text] : decodings)
        EXPECT_EQ(order == 8 ? decoded(UTF8Decoder(), bytes) : decoded(UTF16Decoder(order), bytes), text) << testing::PrintToString(bytes);
    // UTF-8 refused: overlong, surrogates, above U+10FFFF, stray, truncated, bad continuation.
    for (const char* bytes : {"\xC0\x80", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80",
                              "\x80", "ok\xC3", "\xF0\x9F\x98", "\xC3\x41"})
        EXPECT_EQ(decoded(UTF8Decoder(), bytes), L"refused") << testing::PrintToString(std::string(bytes));
    const std::tuple<std::string, size_t, std::wstring> tries[] = {
        {"caf\xC3\xA9 \xE2\x82\xAC", 100, L"café €"},
        {"tab\there\r\n", 100, L"tab\there\r\n"},
        {"a\0b"s, 100, L"a.b"},
        {"caf\xE9", 100, L"café"},
        {"a\tb\x01\r\n", 100, L"a.b..."},
        {"\x80\x9F\xA0\x7F", 100, L"..\xA0."},
        {"ab\x01"s + "def", 4, L"ab.d"},
        {"\xC3\xA9\xE2\x82\xACx", 2, L"é€"},
        {"ZZ\xC3\xA9\xFF", 3, L"ZZ\u00C3"},
        {"\xC3\xA9"s + "a\x01", 1, L"\u00C3"}, // judged on every byte, also on those not shown
    };
    for (const auto& [bytes, max, text] : tries) EXPECT_EQ(String::tryString(bytes.data(), bytes.size(), max).str(), text) << bytes;
    EXPECT_EQ(String(L"\t\x01 a b\r\n ").trim().str(), L"a b");
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    EXPECT_EQ(DateTime().assign(1700000000123LL).toString().str(), L"2023-11-14 22:13:20.123");
}

} // namespace
