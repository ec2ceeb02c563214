// String: regular expressions (search, substring, replace_r) and the tryString preview.
#include <string>

#include <gtest/gtest.h>

#include "zel/String.h"

using ZELd::String;

namespace {

TEST(String, SearchAndSubstring)
{
    const size_t none = String::npos;
    struct { const wchar_t *in, *pattern; bool ignoreCase; size_t at; const wchar_t* found; } cases[] = {
        {L"Driver=x;DRIVER = SQLite3; user=me", L"DRIVER *= *[^;]+", false, 9, L"DRIVER = SQLite3"},
        {L"Driver=x;DRIVER = SQLite3; user=me", L"DRIVER *=", true, 0, L"Driver="},
        {L"database=a.db; driver=SQLite3;user=x", L"DRIVER *= *[^;]+", true, 15, L"driver=SQLite3"},
        {L"database=a.db; driver=SQLite3;user=x", L"DRIVER *= *[^;]+", false, none, L""},
        {L"année été", L"été", false, 6, L"été"},                // characters, not bytes
        {L"ÉTÉ", L"été", true, 0, L"ÉTÉ"},                       // case beyond ASCII
        {L"bad\xDCFF.MP3", L"\\.mp3$", true, 4, L".MP3"},      // a name holding an escaped byte
        {L"abc", L"(", false, none, L""},                        // a pattern that does not compile matches nothing
    };
    for (const auto& c : cases) {
        EXPECT_EQ(String(c.in).search(c.pattern, c.ignoreCase), c.at) << c.pattern << " in " << c.in;
        EXPECT_EQ(String(c.in).substring(c.pattern, c.ignoreCase).str(), c.found) << c.pattern << " in " << c.in;
    }
}

TEST(String, ReplaceRegex)
{
    const size_t all = String::npos;
    struct { const wchar_t *in, *pattern, *replacement; bool ignoreCase; size_t max; const wchar_t* out; } cases[] = {
        {L"a  b\t\tc d   e", L"[ \t]{2,}", L" ", false, all, L"a b c d e"},
        {L"a  b\t\tc d   e", L"[ \t]{2,}", L" ", false, 1, L"a b\t\tc d   e"},
        {L"General\nComplete name : /x/y.mp3\nFormat : MPEG\n", L"Complete name[^\n]+\n", L"", true, all, L"General\nFormat : MPEG\n"},
        {L"DRIVER=a;driver=b", L"driver", L"D", true, all, L"D=a;D=b"},
        {L"a.b", L"\\.", L"$1\\0", false, all, L"a$1\\0b"}, // the replacement is taken literally
        {L"abc", L"(", L"-", false, all, L"abc"},
        // Empty matches move on by one character and end.
        {L"abc", L"x*", L"-", false, all, L"-a-b-c-"},
        {L"xxa", L"x*", L"-", false, all, L"--a-"},
        {L"", L"", L"!", false, all, L"!"},
        {L"abc", L"", L"-", false, 2, L"-a-bc"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(String(c.in).replace_r(c.pattern, c.replacement, c.ignoreCase, c.max).str(), c.out) << c.pattern << " on " << c.in;
}

TEST(String, TryString)
{
    struct { std::string bytes; size_t max; const wchar_t* out; } cases[] = {
        {"caf\xC3\xA9 \xE2\x82\xAC", 100, L"café €"},
        {"tab\there\r\n", 100, L"tab\there\r\n"},
        // Control characters or bytes that are not UTF-8: every byte on its own, the UTF-8 ones too.
        {std::string("a\0b", 3), 100, L"a.b"},
        {"caf\xE9", 100, L"café"},
        {"a\tb\x01\r\n", 100, L"a.b..."}, // tabs and line breaks too: a preview stays on its line
        {"\xC3\xA9\x01", 100, L"\xC3\xA9."},
        {"\x80\x9F\xA0\x7F", 100, L"..\xA0."}, // C1 and DEL are not printable
        {"ab\x01" "def", 4, L"ab.d"},
        {"\xC3\xA9\xE2\x82\xAC" "x", 2, L"é€"},
    };
    for (const auto& c : cases) EXPECT_EQ(String::tryString(c.bytes.data(), c.bytes.size(), c.max).str(), c.out) << c.bytes;
}

} // namespace
