// The ID3v1 tag: its text fields, the v1.1 track number, signed numbers and
// reading it from the end of a file.
#define ZEL_SOURCE "tests/media/ID3v1Test"
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "media/ID3v1.h"
#include "support/TagBuilder.h"
#include "support/TempDir.h"
#include "zel/File.h"
#include "zel/FileName.h"

using namespace ZELd;
using namespace tagfix;

namespace {

TEST(ID3v1, TrackOnlyWhenAZeroEndsTheCommentBeforeByte126AndNumbersAreSigned)
{
    const std::string c28(28, 'c');
    const std::wstring w28(28, L'c');
    // comment: the 30 bytes at offsets 97 to 126, as they lie.
    const struct { std::string comment; int genreByte; std::wstring text; int track, genre; } cases[] = {
        {c28 + '\0' + '\x07', 0x11, w28, 7, 17},
        {c28 + "cc", 0x7F, w28 + L"cc", 0, 127},
        {c28 + "c" + '\0', 0x80, w28 + L'c', 0, -128},
        {c28 + "  ", 0xFF, w28, 0, -1}, // the length counts before trimming
        {"abc" + std::string(26, '\0') + '\x03', 0, L"abc", 3, 0},
        {std::string("ab\0", 3) + std::string(26, 'x') + '\x09', 0, L"ab", 9, 0}, // byte 125 alone decides nothing
        {c28 + '\0' + '\xC8', 0, w28, -56, 0},
        {c28 + '\0' + '\x7F', 0, w28, 127, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.comment));
        ID3v1 tag;
        ASSERT_TRUE(tag.read(id3v1("Title", "", "", "", c.comment, -1, c.genreByte).data()));
        EXPECT_EQ(std::tuple(tag.comment().str(), tag.track(), tag.genre()), std::tuple(c.text, c.track, c.genre));
    }
}

TEST(ID3v1, TextStopsAtTheFirstZeroLosesBlanksAtBothEndsAndIsLatin1)
{
    const std::string padded = id3v1("  Padded Title" + std::string(16, ' '), std::string(" Beyonc\xE9\0Leftover", 16), "\tRecord\n", "    ",
                                     std::string("Hi\0there", 8), 200, 255);
    ID3v1 tag;
    ASSERT_TRUE(tag.read(padded.data()));
    EXPECT_EQ(tag.toString().str(), L"TAG Title[Padded Title] Artist[Beyonc\u00E9] Album[Record] Year[] Comment[Hi] Track[-56] Genre[-1]");
    // Every byte from 0x80 on, 28 at a time between two marks that trimming cannot pass.
    for (int first = 0x80; first <= 0xFF; first += 28) {
        std::string bytes = "<";
        std::wstring want = L"<";
        for (int b = first; b < first + 28 && b <= 0xFF; ++b) bytes += static_cast<char>(b), want += static_cast<wchar_t>(b);
        ASSERT_TRUE(tag.read(id3v1(bytes + '>').data()));
        EXPECT_EQ(tag.title().str(), want + L'>') << first;
    }
}

TEST(ID3v1, ABlockWithoutTagOrATrackLeavesTheEarlierValues)
{
    ID3v1 tag, fresh;
    ASSERT_TRUE(tag.read(id3v1("Kept", "Band", "", "2001", "c", 7, 9).data()));
    const std::wstring before = tag.toString().str();
    std::string other = id3v1("Other", "X", "Y", "1990", "z", 3, 2);
    for (const char* magic : {"TAg", "tag", "XAG", " TA", "\0AG"}) {
        other.replace(0, 3, magic, 3);
        EXPECT_FALSE(tag.read(other.data()) || fresh.read(other.data())) << magic;
        EXPECT_EQ(tag.toString().str(), before) << magic;
    }
    EXPECT_EQ(fresh.version(), 0);
    for (const std::string& comment : {std::string(30, 'c'), std::string(29, 'c') + '\0'}) { // no room for a track number
        ASSERT_TRUE(tag.read(id3v1("Title", "", "", "", comment).data()));
        EXPECT_EQ(tag.track(), 7) << comment.size();
    }
}

TEST(ID3v1, ReadFromTheLast128BytesOfAFile)
{
    testsupport::TempDir dir;
    const std::string tag = id3v1("End", "", "", "", "", 5, 1);
    const struct { std::string bytes; bool found; } cases[] = {
        {std::string(1000, '\xFF') + tag, true}, {tag, true}, {tag + '\0', false}, {tag.substr(0, 127), false}, {"", false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes.size());
        writeFile(dir / "a.mp3", c.bytes);
        File file(fromNativePath((dir / "a.mp3").c_str()), 1, 438);
        ID3v1 id3;
        EXPECT_EQ(id3.read(file), c.found);
        EXPECT_EQ(std::tuple(id3.version(), id3.title().str(), id3.track()), c.found ? std::tuple(1, L"End", 5) : std::tuple(0, L"", 0));
    }
}

} // namespace
