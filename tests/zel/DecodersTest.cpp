// Charset decoders: what each accepts, what it refuses and how.
#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "zel/Decoders.h"

using namespace ZELd;
using namespace std::string_literals;

namespace {

template <class D>
bool refuses(const D& decoder, const std::string& bytes)
{
    return zeltest::throws<CharsetConvertException>([&] { decoder.decode(bytes.data(), bytes.size()); });
}

TEST(Decoders, AsciiAndLatin1)
{
    std::string all;
    for (int b = 0; b < 0x100; ++b) all.push_back(static_cast<char>(b));
    std::wstring latin1 = Latin1Decoder().decode(all.data(), all.size()).str();
    ASSERT_EQ(latin1.size(), 0x100u);
    for (int b = 0; b < 0x100; ++b) EXPECT_EQ(latin1[b], static_cast<wchar_t>(b));
    EXPECT_EQ(AsciiDecoder().decode(all.data(), 0x80).str(), latin1.substr(0, 0x80));
    for (const char* bad : {"\x80", "ab\xFF", "caf\xC3\xA9"}) EXPECT_TRUE(refuses(AsciiDecoder(), bad)) << bad;
}

TEST(Decoders, Utf8AcceptsWellFormedSequences)
{
    struct { std::string bytes; std::wstring text; } cases[] = {
        {"a\0b"s, L"a\0b"s},
        {"\xC2\x80\xDF\xBF", L"\x80\x7FF"},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", L"\x800\xD7FF\xE000\xFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\U00010000\U0010FFFF"},
    };
    for (const auto& c : cases) EXPECT_EQ(UTF8Decoder().decode(c.bytes.data(), c.bytes.size()).str(), c.text) << c.bytes;
}

TEST(Decoders, Utf8RefusesMalformedOverlongSurrogatesAndTooLarge)
{
    const char* cases[] = {
        "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", // overlong
        "\xED\xA0\x80", "\xED\xBF\xBF",                                          // surrogates
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80",          // above U+10FFFF
        "\x80", "\xBF", "\xFE", "\xFF",                                          // stray bytes
        "\xC3", "\xE2\x82", "\xF0\x9F\x98", "ok\xC3",                            // truncated
        "\xC3\x41", "\xE2\x28\xA1", "\xF0\x9F\x98\x41",                          // bad continuation
    };
    for (const char* bad : cases) EXPECT_TRUE(refuses(UTF8Decoder(), bad)) << "accepted " << testing::PrintToString(std::string(bad));
}

TEST(Decoders, Utf16ByteOrderMarksPairsAndStrayUnits)
{
    struct { int order; std::string bytes; std::wstring text; } cases[] = {
        {1234, "A\0B\0"s, L"AB"},
        {4321, "\0A\0B"s, L"AB"},
        // A leading mark chooses the order and is dropped; later on it is text.
        {4321, "\xFF\xFE" "A\0"s, L"A"},
        {1234, "\xFE\xFF\0A"s, L"A"},
        {1234, "A\0\xFF\xFE"s, L"A\xFEFF"},
        {1234, "A\0B"s, L"A"}, // an odd trailing byte is dropped
        {1234, "\x3D\xD8\x00\xDE"s, L"\U0001F600"},
        {4321, "\xD8\x3D\xDE\x00"s, L"\U0001F600"},
        {1234, "\xFF\xDB\xFF\xDF"s, L"\U0010FFFF"},
        // Unpaired surrogates.
        {1234, "\x3D\xD8\0"s, L"\xFFFD"},
        {1234, "\x3D\xD8\x41\0"s, L"\xFFFD" L"A"},
        {1234, "\x00\xDE\x41\0"s, L"\xFFFD" L"A"},
        {1234, "\x3D\xD8\x3D\xD8\x00\xDE"s, L"\xFFFD\U0001F600"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(UTF16Decoder(c.order).decode(c.bytes.data(), c.bytes.size()).str(), c.text) << testing::PrintToString(c.bytes) << " order " << c.order;
}

} // namespace
