// The ID3v1.1 track number: byte 126 is the track only when a zero byte ends
// the comment before it; track and genre are signed bytes; every field is
// trimmed; a block that does not begin with "TAG" changes nothing.
#define ZEL_SOURCE "tests/media/ID3v1Test"
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "media/ID3v1.h"
#include "support/TagBuilder.h"

using namespace ZELd;

namespace {

TEST(ID3v1, TrackOnlyWhenAZeroEndsTheCommentBeforeByte126)
{
    const std::string c28(28, 'c');
    const std::wstring w28(28, L'c');
    // The 30 bytes at offsets 97 to 126 as they lie, the genre byte; the comment, track and genre read.
    const std::tuple<std::string, int, std::wstring, int, int> cases[] = {
        {c28 + '\0' + '\x07', 0x11, w28, 7, 17},
        {c28 + "cc", 0x7F, w28 + L"cc", 0, 127},
        {c28 + "c" + '\0', 0x80, w28 + L'c', 0, -128},
        {c28 + "  ", 0xFF, w28, 0, -1}, // the length counts before trimming
        {"abc" + std::string(26, '\0') + '\x03', 0, L"abc", 3, 0},
        {std::string("ab\0", 3) + std::string(26, 'x') + '\x09', 0, L"ab", 9, 0}, // byte 125 alone decides nothing
        {c28 + '\0' + '\xC8', 0, w28, -56, 0},
    };
    for (const auto& [bytes, genreByte, comment, track, genre] : cases) {
        ID3v1 tag;
        ASSERT_TRUE(tag.read(testsupport::id3v1("Title", "", "", "", bytes, -1, genreByte).data()));
        EXPECT_EQ(std::tuple(tag.comment().str(), tag.track(), tag.genre()), std::tuple(comment, track, genre))
            << testing::PrintToString(bytes);
    }
    ID3v1 tag;
    ASSERT_TRUE(tag.read(testsupport::id3v1(" Kept ", "\tBand", "Disc  ", " 99 ", " c ", 7).data()));
    const std::wstring before = tag.toString().str();
    EXPECT_EQ(before, L"TAG Title[Kept] Artist[Band] Album[Disc] Year[99] Comment[c] Track[7] Genre[0]") << "every field trimmed";
    EXPECT_FALSE(tag.read(("TAg" + testsupport::id3v1("Other", "X", "Y", "1990", "z", 3, 2).substr(3)).data()));
    EXPECT_EQ(tag.toString().str(), before);
    ASSERT_TRUE(tag.read(testsupport::id3v1("Kept", "", "", "", std::string(29, 'c')).data())); // the zero is byte 126 itself
    EXPECT_EQ(tag.track(), 7) << "without room for a track number the earlier one stays";
}

} // namespace
