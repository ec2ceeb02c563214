// String: trimming, case, comparisons, regular expressions and tryString.
#include <langinfo.h>

#include <clocale>
#include <cwchar>
#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "zel/ByteString.h"
#include "zel/Process.h"

using ZELd::String;

namespace {

int sign(int r) { return (r > 0) - (r < 0); }

// Case conversions depend on the character type; start-up settles it even
// when the process comes with the "C" locale.
class StringCase : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::setlocale(LC_ALL, "C");
        ZELd::ZELInitializeD();
        ASSERT_STREQ(::nl_langinfo(CODESET), "UTF-8");
    }
};

TEST_F(StringCase, ToLowerCaseAndCompareNoCase)
{
    EXPECT_EQ(String(L"ABC Été ÀÇ ΔΣ 123").toLowerCase().str(), L"abc été àç δσ 123");
    struct { const wchar_t *a, *b; int sign; } cases[] = {
        {L"ABC", L"abc", 0}, {L"Été", L"éTÉ", 0}, {L"abc", L"abd", -1}, {L"b", L"A", 1},
        {L"ab", L"ABC", -1}, {L"abc", L"AB", 1},  {L"", L"", 0},        {L"", L"a", -1}};
    for (const auto& c : cases) EXPECT_EQ(sign(String(c.a).compareNoCase(c.b)), c.sign) << c.a << " vs " << c.b;
}

TEST(String, TrimEndsWithAndCompare)
{
    struct { const wchar_t *in, *out; } trims[] = { // only characters up to U+0020 go
        {L"  a b \t\n", L"a b"}, {L"\x01x\x1f", L"x"}, {L"  ", L""}, {L"", L""},
        {L"\xA0x\xA0", L"\xA0x\xA0"}, {L"\r\n\vv \x7F", L"v \x7F"}};
    for (const auto& c : trims) EXPECT_EQ(String(c.in).trim().str(), c.out) << c.in;

    EXPECT_TRUE(String(L"song.mp3").endsWith(L".mp3"));
    EXPECT_FALSE(String(L"song.mp3").endsWith(L".MP3"));
    EXPECT_FALSE(String(L"mp3").endsWith(L".mp3"));
    EXPECT_TRUE(String(L"").endsWith(L""));

    // Compared with ".." over the name's length, only the dot entries "." and ".." are equal.
    struct { const wchar_t* name; int sign; } dots[] = {
        {L".", 0}, {L"..", 0}, {L"...", 1}, {L".a", 1}, {L"-", -1}, {L"a", 1}};
    for (const auto& c : dots) EXPECT_EQ(sign(String(c.name).compare(L"..", std::wcslen(c.name))), c.sign) << c.name;
}

TEST(String, SearchAndSubstring)
{
    const String conn(L"Driver=x;DRIVER = SQLite3; user=me");
    EXPECT_EQ(conn.search(L"DRIVER *=", false), 9u);
    EXPECT_EQ(conn.search(L"DRIVER *=", true), 0u);
    EXPECT_EQ(conn.search(L"PORT *=", true), String::npos);
    EXPECT_EQ(conn.substring(L"DRIVER *= *[^;]+", false).str(), L"DRIVER = SQLite3");
    const String lower(L"database=a.db; driver=SQLite3;user=x");
    EXPECT_EQ(lower.substring(L"DRIVER *= *[^;]+", true).str(), L"driver=SQLite3");
    EXPECT_EQ(lower.substring(L"DRIVER *= *[^;]+", false).str(), L"");

    // Characters, not bytes; case beyond ASCII; names holding escaped bytes.
    EXPECT_EQ(String(L"année été").search(L"été", false), 6u);
    EXPECT_EQ(String(L"ÉTÉ").search(L"été", true), 0u);
    EXPECT_EQ(String(L"bad\xDCFF.MP3").search(L"\\.mp3$", true), 4u);
    // A pattern that does not compile matches nothing.
    EXPECT_EQ(conn.search(L"(", false), String::npos);
    EXPECT_EQ(conn.substring(L"[", false).str(), L"");
}

TEST(String, ReplaceRegex)
{
    const size_t all = String::npos;
    struct { const wchar_t *in, *pattern, *replacement; bool ignoreCase; size_t max; const wchar_t* out; } cases[] = {
        {L"a  b\t\tc d   e", L"[ \t]{2,}", L" ", false, all, L"a b c d e"},
        {L"a  b\t\tc d   e", L"[ \t]{2,}", L" ", false, 1, L"a b\t\tc d   e"},
        {L"General\nComplete name : /x/y.mp3\nFormat : MPEG\n", L"Complete name[^\n]+\n", L"", true, all,
         L"General\nFormat : MPEG\n"},
        {L"DRIVER=a;driver=b", L"driver", L"D", true, all, L"D=a;D=b"},
        {L"a.b", L"\\.", L"$1\\0", false, all, L"a$1\\0b"}, // the replacement is taken literally
        {L"abc", L"z", L"-", false, all, L"abc"},
        {L"abc", L"(", L"-", false, all, L"abc"},
        // Empty matches move on by one character and end.
        {L"abc", L"x*", L"-", false, all, L"-a-b-c-"},
        {L"xxa", L"x*", L"-", false, all, L"--a-"},
        {L"ab", L"^", L">", false, all, L">ab"},
        {L"", L"", L"!", false, all, L"!"},
        {L"abc", L"", L"-", false, 2, L"-a-bc"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(String(c.in).replace_r(c.pattern, c.replacement, c.ignoreCase, c.max).str(), c.out)
            << c.pattern << " on " << c.in;
}

TEST(String, TryString)
{
    struct { std::string bytes; size_t max; const wchar_t* out; } cases[] = {
        {"caf\xC3\xA9 \xE2\x82\xAC", 100, L"café €"}, {"tab\there\r\n", 100, L"tab\there\r\n"},
        // Control characters or bytes that are not UTF-8: every byte on its own, the UTF-8 ones too.
        {"a\x01" "b", 100, L"a.b"}, {std::string("a\0b", 3), 100, L"a.b"}, {"caf\xE9", 100, L"café"},
        {"a\tb\x01\r\n", 100, L"a.b..."}, // tabs and line breaks too: a preview stays on its line
        {"\xC3\xA9\x01", 100, L"\xC3\xA9."}, {"\x80\x9F\xA0\x7F", 100, L"..\xA0."}, // C1 and DEL are not printable
        {"abcdef", 3, L"abc"}, {"ab\x01" "def", 4, L"ab.d"}, {"\xC3\xA9\xE2\x82\xAC" "x", 2, L"é€"},
        {"", 10, L""}, {"abc", 0, L""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(String::tryString(c.bytes.data(), c.bytes.size(), c.max).str(), c.out) << c.bytes;
        EXPECT_EQ(String::tryString(ZELd::ByteString(c.bytes.data(), c.bytes.size()), c.max).str(), c.out);
    }
}

} // namespace
