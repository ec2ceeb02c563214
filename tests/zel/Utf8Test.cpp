// UTF-8 with surrogate escapes, and file names made of arbitrary bytes.
#include <algorithm>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "zel/FileName.h"
#include "zel/Utf8.h"

using namespace ZELd;

namespace {

const std::string kFFFD = "\xEF\xBF\xBD";

TEST(Utf8, EscapesAndEncodingModes)
{
    // Each byte that is not part of valid UTF-8 becomes U+DC00 + byte; restored,
    // it is that byte again; replaced, U+FFFD.
    struct { std::string bytes; std::wstring text; std::string replaced; } cases[] = {
        {"a\xFF", L"a\xDCFF", "a" + kFFFD},
        {"\xE2\x82\xAC\xE2", L"€\xDCE2", "\xE2\x82\xAC" + kFFFD},
        {"\xC0\x80", L"\xDCC0\xDC80", kFFFD + kFFFD},
        {"\xED\xB3\xBF", L"\xDCED\xDCB3\xDCBF", kFFFD + kFFFD + kFFFD}, // an encoded U+DCFF is no escape
        {"ok \xF0\x9F\x98\x80", L"ok \U0001F600", "ok \xF0\x9F\x98\x80"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(decodeUtf8Escaped(c.bytes.data(), c.bytes.size()), c.text) << c.bytes;
        EXPECT_EQ(toUtf8(c.text, EscapedBytes::Restore), c.bytes);
        EXPECT_EQ(toUtf8(c.text, EscapedBytes::Replace), c.replaced);
    }
    // Characters without a UTF-8 form of their own become U+FFFD in both modes.
    for (wchar_t c : {0xDC7F, 0xD800, 0xDFFF, 0x110000}) EXPECT_EQ(toUtf8(std::wstring(1, c)), kFFFD) << std::hex << static_cast<unsigned>(c);
    EXPECT_EQ(toUtf8(L"\x7F\x80\x7FF\x800\xFFFF\U00010000\U0010FFFF"),
              "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(FileName, AnyBytesRoundTrip)
{
    // Names mixing ASCII, well-formed sequences, encoded surrogates, overlong forms and loose bytes.
    std::mt19937 random(20240229);
    const std::string pieces[] = {"a", "/", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xED\xB2\x80", "\xC0\xAF"};
    for (int round = 0; round < 5000; ++round) {
        std::string bytes;
        for (int i = static_cast<int>(random() % 24); i > 0; --i) {
            if (random() % 2) bytes += pieces[random() % std::size(pieces)];
            else bytes.push_back(static_cast<char>(1 + random() % 255));
        }
        String name = fromNativePath(bytes.data(), bytes.size());
        ASSERT_EQ(nativePath(name), bytes) << "round " << round << ": " << testing::PrintToString(bytes);
        // The database form is valid UTF-8: decoding it again finds no loose byte.
        std::string forDatabase = toUtf8(name.str(), EscapedBytes::Replace);
        std::wstring again = decodeUtf8Escaped(forDatabase.data(), forDatabase.size());
        ASSERT_TRUE(std::none_of(again.begin(), again.end(), [](wchar_t c) { return c >= 0xDC80 && c <= 0xDCFF; }));
    }
}

} // namespace
