// The ID3v1 tag: its text fields, the v1.1 track number, signed numbers and
// reading it from the end of a file.
#define ZEL_SOURCE "tests/media/ID3v1Test"
#include <gtest/gtest.h>

#include <string>

#include "media/ID3v1.h"
#include "support/TagBuilder.h"
#include "support/TempDir.h"
#include "zel/File.h"
#include "zel/FileName.h"

using namespace ZELd;

namespace {

// A tag whose 30 comment bytes (offsets 97 to 126) are given as they lie.
std::string withComment(const std::string& comment30) { return tagfix::id3v1("Title", "", "", "", comment30, -1, 0); }

struct TrackCase {
    const char* name;
    std::string comment;
    std::wstring text;
    int track;
};

TEST(ID3v1, TrackNumberOnlyWhenAZeroEndsTheCommentBeforeByte126)
{
    const TrackCase cases[] = {
        {"28 letters, zero, 7", std::string(28, 'c') + '\0' + '\x07', std::wstring(28, L'c'), 7},
        {"30 letters", std::string(30, 'c'), std::wstring(30, L'c'), 0},
        {"29 letters, zero at 126", std::string(29, 'c') + '\0', std::wstring(29, L'c'), 0},
        {"28 letters and two blanks: the length counts before trimming", std::string(28, 'c') + "  ", std::wstring(28, L'c'), 0},
        {"abc, zeros, 3 at 126", std::string("abc") + std::string(26, '\0') + '\x03', L"abc", 3},
        {"byte 125 is not looked at by itself", std::string("ab") + '\0' + std::string(26, 'x') + '\x09', L"ab", 9},
    };
    for (const TrackCase& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(c.comment.size(), 30u);
        ID3v1 tag;
        ASSERT_TRUE(tag.read(withComment(c.comment).data()));
        EXPECT_EQ(tag.comment().str(), c.text);
        EXPECT_EQ(tag.track(), c.track);
    }
}

TEST(ID3v1, TrackAndGenreAreSignedBytes)
{
    struct {
        int track, genre;
        int wantTrack, wantGenre;
        std::wstring textEnd;
    } cases[] = {
        {200, 0xFF, -56, -1, L" Track[-56] Genre[-1]"},
        {127, 0x80, 127, -128, L" Track[127] Genre[-128]"},
        {1, 0x7F, 1, 127, L" Track[1] Genre[127]"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.track);
        ID3v1 tag;
        ASSERT_TRUE(tag.read(tagfix::id3v1("T", "", "", "", "", c.track, c.genre).data()));
        EXPECT_EQ(tag.track(), c.wantTrack);
        EXPECT_EQ(tag.genre(), c.wantGenre);
        const std::wstring text = tag.toString().str();
        ASSERT_GE(text.size(), c.textEnd.size());
        EXPECT_EQ(text.substr(text.size() - c.textEnd.size()), c.textEnd) << tag.toString().c_str();
    }
}

TEST(ID3v1, TextStopsAtTheFirstZeroAndLosesBlanksAtBothEnds)
{
    ID3v1 tag;
    ASSERT_TRUE(tag.read(tagfix::id3v1("  Padded Title" + std::string(16, ' '), std::string("Band\0Leftover", 13), "\tRecord\n", "    ",
                                       std::string("Hi\0there", 8), 4, 0)
                             .data()));
    EXPECT_EQ(tag.title().str(), L"Padded Title");
    EXPECT_EQ(tag.artist().str(), L"Band");
    EXPECT_EQ(tag.album().str(), L"Record");
    EXPECT_EQ(tag.year().str(), L"");
    EXPECT_EQ(tag.comment().str(), L"Hi");
    EXPECT_EQ(tag.track(), 4);
}

TEST(ID3v1, HighBytesAreTheirLatin1Characters)
{
    // 28 bytes at a time between two marks, so that trimming cannot touch them.
    for (int first = 0x80; first <= 0xFF; first += 28) {
        std::string bytes = "<";
        std::wstring want = L"<";
        for (int b = first; b < first + 28 && b <= 0xFF; ++b) {
            bytes += static_cast<char>(b);
            want += static_cast<wchar_t>(b);
        }
        bytes += '>';
        want += L'>';
        SCOPED_TRACE(first);
        ID3v1 tag;
        ASSERT_TRUE(tag.read(tagfix::id3v1(bytes, bytes).data()));
        EXPECT_EQ(tag.title().str(), want);
        EXPECT_EQ(tag.artist().str(), want);
    }
}

TEST(ID3v1, TextOfAWholeTag)
{
    ID3v1 tag;
    ASSERT_TRUE(tag.read(tagfix::id3v1("Song", "Beyonc\xE9", "Record", "1999", "Fine", 7, 17).data()));
    EXPECT_EQ(tag.version(), 1);
    EXPECT_EQ(tag.toString().str(), L"TAG Title[Song] Artist[Beyonc\u00E9] Album[Record] Year[1999] Comment[Fine] Track[7] Genre[17]");

    ID3v1 zeros;
    ASSERT_TRUE(zeros.read(("TAG" + std::string(125, '\0')).data()));
    EXPECT_EQ(zeros.version(), 1);
    EXPECT_EQ(zeros.toString().str(), L"TAG Title[] Artist[] Album[] Year[] Comment[] Track[0] Genre[0]");
}

TEST(ID3v1, ReadingAgainOverAnEarlierTag)
{
    ID3v1 tag;
    ASSERT_TRUE(tag.read(tagfix::id3v1("Kept", "Band", "", "2001", "c", 7, 9).data()));
    const std::wstring before = tag.toString().str();
    std::string other = tagfix::id3v1("Other", "X", "Y", "1990", "z", 3, 2);
    for (const char* magic : {"TAg", "tag", "XAG", " TA", "\0AG"}) {
        SCOPED_TRACE(std::string(magic, 3));
        other.replace(0, 3, magic, 3);
        EXPECT_FALSE(tag.read(other.data()));
        EXPECT_EQ(tag.toString().str(), before) << "a refused block changes nothing";
    }
    ID3v1 fresh;
    EXPECT_FALSE(fresh.read(other.data()));
    EXPECT_EQ(fresh.version(), 0);

    // A comment without room for a track number leaves the earlier one.
    for (const std::string& comment : {std::string(30, 'c'), std::string(29, 'c') + '\0'}) {
        ASSERT_TRUE(tag.read(withComment(comment).data()));
        EXPECT_EQ(tag.title().str(), L"Title");
        EXPECT_EQ(tag.track(), 7) << comment.size();
    }
}

TEST(ID3v1, ReadFromTheLast128BytesOfAFile)
{
    testsupport::TempDir dir;
    const std::string tag = tagfix::id3v1("End", "", "", "", "", 5, 1);
    struct {
        const char* name;
        std::string bytes;
        bool found;
    } cases[] = {
        {"audio then the tag", std::string(1000, '\xFF') + tag, true},
        {"only the tag", tag, true},
        {"the tag then one byte", tag + '\0', false},
        {"the tag short of its last byte", tag.substr(0, 127), false},
        {"empty", "", false},
    };
    int n = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = dir / (std::to_string(n++) + ".mp3");
        tagfix::writeFile(path, c.bytes);
        File file(fromNativePath(path.c_str()), 1, 438);
        ID3v1 id3;
        EXPECT_EQ(id3.read(file), c.found);
        EXPECT_EQ(id3.version(), c.found ? 1 : 0);
        EXPECT_EQ(id3.title().str(), c.found ? L"End" : L"");
        EXPECT_EQ(id3.track(), c.found ? 5 : 0);
    }
}

} // namespace
