// Charset decoders: what each accepts, what it refuses and how.
#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "zel/Decoders.h"

using namespace ZELd;
using zeltest::Caught;

namespace {

// The bytes of a literal, zero bytes included.
template <size_t N>
std::string raw(const char (&s)[N])
{
    return std::string(s, N - 1);
}

template <class D>
Caught failure(const D& decoder, const std::string& bytes)
{
    return zeltest::catchException<CharsetConvertException>([&] { decoder.decode(bytes.data(), bytes.size()); });
}

TEST(Decoders, AsciiAndLatin1)
{
    std::string all;
    for (int b = 0; b < 0x100; ++b) all.push_back(static_cast<char>(b));
    std::wstring latin1 = Latin1Decoder().decode(all.data(), all.size()).str();
    std::wstring ascii = AsciiDecoder().decode(all.data(), 0x80).str();
    ASSERT_EQ(latin1.size(), 0x100u);
    ASSERT_EQ(ascii.size(), 0x80u);
    for (int b = 0; b < 0x100; ++b) EXPECT_EQ(latin1[b], static_cast<wchar_t>(b));
    EXPECT_EQ(ascii, latin1.substr(0, 0x80));

    for (const char* bad : {"\x80", "ab\xFF", "caf\xC3\xA9"}) {
        Caught c = failure(AsciiDecoder(), bad);
        EXPECT_TRUE(c.thrown && c.expectedType) << bad;
        EXPECT_EQ(c.all.rfind(L"CharsetConvertException: ", 0), 0u) << c.all;
    }
}

TEST(Decoders, Utf8AcceptsWellFormedSequences)
{
    struct { std::string bytes; std::wstring text; } cases[] = {
        {"", L""}, {raw("a\0b"), std::wstring(L"a\0b", 3)}, {"\xC2\x80", L"\x80"}, {"\xDF\xBF", L"\x7FF"},
        {"\xE0\xA0\x80", L"\x800"}, {"\xE2\x82\xAC", L"€"}, {"\xED\x9F\xBF", L"\xD7FF"}, {"\xEE\x80\x80", L"\xE000"},
        {"\xEF\xBF\xBF", L"\xFFFF"}, {"\xF0\x90\x80\x80", L"\U00010000"}, {"\xF4\x8F\xBF\xBF", L"\U0010FFFF"},
        {"\xC3\xA9t\xC3\xA9", L"été"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(UTF8Decoder().decode(c.bytes.data(), c.bytes.size()).str(), c.text) << c.bytes;
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
    for (const char* bad : cases) {
        Caught c = failure(UTF8Decoder(), bad);
        EXPECT_TRUE(c.thrown && c.expectedType) << "accepted " << testing::PrintToString(std::string(bad));
    }
    Caught c = failure(UTF8Decoder(), "abc\xC0\x80"); // the message says which byte and where
    EXPECT_NE(c.message.find(L"C0"), std::wstring::npos) << c.message;
    EXPECT_NE(c.message.find(L"3"), std::wstring::npos) << c.message;
}

TEST(Decoders, Utf16ByteOrderMarksPairsAndStrayUnits)
{
    struct { int order; std::string bytes; std::wstring text; } cases[] = {
        {1234, raw("A\0B\0"), L"AB"}, {4321, raw("\0A\0B"), L"AB"},
        // A leading mark chooses the order and is dropped; later on it is text.
        {4321, raw("\xFF\xFE" "A\0"), L"A"}, {1234, raw("\xFE\xFF\0A"), L"A"},
        {1234, raw("\xFF\xFE"), L""}, {1234, raw("A\0\xFF\xFE"), L"A\xFEFF"},
        {1234, raw("A\0B"), L"A"}, {1234, raw("A"), L""}, // an odd trailing byte is dropped
        {1234, raw("\x3D\xD8\x00\xDE"), L"\U0001F600"}, {4321, raw("\xD8\x3D\xDE\x00"), L"\U0001F600"},
        {1234, raw("\xFF\xDB\xFF\xDF"), L"\U0010FFFF"},
        // Unpaired surrogates.
        {1234, raw("\x3D\xD8"), L"\xFFFD"}, {1234, raw("\x3D\xD8\0"), L"\xFFFD"},
        {1234, raw("\x3D\xD8\x41\0"), L"\xFFFD" L"A"}, {1234, raw("\x00\xDE\x41\0"), L"\xFFFD" L"A"},
        {1234, raw("\x3D\xD8\x3D\xD8\x00\xDE"), L"\xFFFD\U0001F600"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(UTF16Decoder(c.order).decode(c.bytes.data(), c.bytes.size()).str(), c.text)
            << testing::PrintToString(c.bytes) << " order " << c.order;
}

} // namespace
