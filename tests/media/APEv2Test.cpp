// APE tags: the places a tag is found, how items are decoded by type, what a
// damaged item area gives, and sizes the file cannot hold.
#define ZEL_SOURCE "tests/media/APEv2Test"
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "media/APEv2.h"
#include "support/ReportCapture.h"
#include "support/TagBuilder.h"
#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/File.h"
#include "zel/FileName.h"

using namespace ZELd;
using namespace testsupport;

namespace {

using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;

Pairs pairsOf(const APEv2& tag)
{
    Pairs out;
    for (const APEv2Item* item : tag.items()) out.emplace_back(item->key().str(), item->value().str());
    return out;
}

// Audio whose last 32 bytes read as an item named Junk if a walk starts too early.
const std::string kAudio = std::string(200, '\xFF') + apeItem({"Junk", std::string(19, 'j')});
const std::string kId3v1 = id3v1("T");
constexpr uint32_t kHeaderFlags = kApeHasHeader | kApeIsHeader;
constexpr long long kSearch = 1; // not a place: the tag is searched for

// The item area ending a file (footer at -32) or starting it (header at 0, with the size given).
std::string footer(const std::string& area) { return apeBlock(2000, static_cast<uint32_t>(area.size() + 32), 1, 0); }
std::string endTag(const std::string& area) { return kAudio + area + footer(area); }
std::string startTag(const std::string& area, uint32_t size)
{
    return apeBlock(2000, size, 1, kHeaderFlags) + area + footer(area) + kAudio;
}

const TempDir kDir;

// Writes the bytes to a file and reads its tag from the 32 bytes at the position, or by a search.
bool readTag(APEv2& tag, const std::string& bytes, long long position)
{
    writeFile(kDir / "a.mp3", bytes);
    File file(fromNativePath((kDir / "a.mp3").c_str()), 1, 438);
    if (position == kSearch) return tag.read(file, nullptr, 0);
    char block[32];
    file.seek(position, position < 0 ? 2 : 0);
    return file.read(block, sizeof block) == sizeof block && tag.read(file, block, position);
}

TEST(APEv2, SameItemsWhereverTheTagLies)
{
    const std::vector<ApeItem> items = {{"Title", "Song"}, {"Artist", "Band"}, {"Year", "2001"}};
    const std::tuple<std::string, long long, uint32_t, uint32_t> places[] = {
        // bytes, position, version, flags
        {kAudio + ape(2000, items, true), -32, 2000, kApeHasHeader},
        {kAudio + ape(2000, items, true) + kId3v1, -160, 2000, kApeHasHeader},
        {kAudio + ape(1000, items, false) + kId3v1, -160, 1000, 0},
        {ape(2000, items, true) + kAudio, 0, 2000, kHeaderFlags},
    };
    for (const auto& [bytes, place, version, flags] : places)
        for (long long position : {place, kSearch}) {
            SCOPED_TRACE(std::to_string(place) + (position == kSearch ? ", searched" : ", given"));
            APEv2 tag;
            ASSERT_TRUE(readTag(tag, bytes, position));
            EXPECT_EQ(pairsOf(tag), (Pairs{{L"Title", L"Song"}, {L"Artist", L"Band"}, {L"Year", L"2001"}}));
            EXPECT_EQ(std::tuple(tag.version(), tag.count(), tag.flags()), std::tuple(version, 3u, static_cast<int32_t>(flags)));
        }
    APEv2 none;
    EXPECT_FALSE(readTag(none, std::string(400, '\0'), kSearch));
}

TEST(APEv2, ValuesDecodedByItemTypeAndLatin1FallbackReported)
{
    const std::pair<ApeItem, std::wstring> cases[] = {
        {{"Title", " \t Caf\xC3\xA9 \r\n"}, L"size[11] flags[0] key[Title] value[Caf\u00E9]"},
        {{"Artist", std::string("Song\0Other", 10)}, L"size[10] flags[0] key[Artist] value[Song]"},
        {{"Genre", "Rock", 1}, L"size[4] flags[1] key[Genre] value[Rock]"},                                      // read-only, still text
        {{"Comment", " \xE9 "}, L"size[3] flags[0] key[Comment] value[\u00E9]"},                                 // not UTF-8: Latin-1
        {{"Cover", std::string(" a\x01\xFF \0tail", 10), 2}, L"size[10] flags[2] key[Cover] value[ a.\u00FF ]"}, // binary: not trimmed
        {{"Link", "http://example.org/", 4}, L"size[19] flags[4] key[Link] value[]"},
        {{"Other", "data", 6}, L"size[4] flags[6] key[Other] value[]"},
    };
    std::string area;
    for (const auto& [item, text] : cases) area += apeItem(item);
    APEv2 tag;
    ReportCapture report;
    ASSERT_TRUE(readTag(tag, endTag(area), -32));
    ASSERT_EQ(tag.items().size(), std::size(cases));
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(tag.items()[i]->toString().str(), cases[i].second);
    // Only the value that is not UTF-8 is reported: three traces, the last with the raw value.
    const std::wstring head = L"UTF8Decoder::decode failed. retry Latin1Decoder\nItem size[3] flags[0] type[0] CharsetConvertException: ";
    const std::wstring tail = L" key[Comment] [ \u00E9 ]\n";
    ASSERT_GE(report.text.size(), head.size() + tail.size()) << testing::PrintToString(report.text);
    EXPECT_EQ(report.text.substr(0, head.size()), head);
    EXPECT_EQ(report.text.substr(report.text.size() - tail.size()), tail);
}

// A damaged item area keeps what can be read; a size the file cannot hold is refused.
TEST(APEv2, DamagedAreasAndSizes)
{
    const std::string first = apeItem({"A", "1"}), item = apeItem({"Title", "Song"});
    const std::string tooLong = first + le32(18) + le32(0) + "Long" + '\0' + "abc" + apeItem({"Next", "v"}); // 17 bytes after the key
    const std::string ahead = std::string(32, '\0') + item;                                                  // every byte before the footer
    const uint32_t fits = static_cast<uint32_t>(ahead.size()), whole = static_cast<uint32_t>(startTag(item, 0).size());
    const Pairs a1 = {{L"A", L"1"}}, song = {{L"Title", L"Song"}};
    const std::tuple<std::string, long long, bool, Pairs> cases[] = {
        // bytes, position, read, items
        {endTag(tooLong), -32, true, {{L"A", L"1"}, {L"Long", L""}}},
        {startTag(tooLong, static_cast<uint32_t>(tooLong.size() + 32)), 0, true, {{L"A", L"1"}, {L"Long", L""}}},
        {endTag(first + le32(5) + le32(0) + "Unended"), -32, true, {{L"A", L"1"}, {L"Unended", L""}}}, // a key without its zero byte
        {endTag(first + le32(0) + le32(0)), -32, true, a1},
        {endTag(first + le32(0) + le32(0) + "K"), -32, true, {{L"A", L"1"}, {L"K", L""}}}, // 8, 9 bytes left
        {ahead + apeBlock(1000, fits, 1, 0), -32, true, song},
        {kAudio + item + apeBlock(2000, 31, 1, 0), -32, true, {}},
        {kAudio + item + apeBlock(2000, 0, 1, 0) + kId3v1, -160, true, {}},
        {startTag(item, 31), 0, true, {}},
        // A tag that would begin before the file is read from its start, a tag larger than the file not at all.
        {ahead + apeBlock(1000, fits + 1, 1, 0), -32, true, song},
        {ahead + apeBlock(1000, fits + 1, 1, 0) + kId3v1, -160, true, song},
        {item + apeBlock(1000, 50, 1, 0) + kId3v1, -160, true, {{L"", L""}}}, // the items are the footer's last 18 bytes
        {ahead + apeBlock(1000, fits + 33, 1, 0), -32, false, {}},
        {kAudio + item + apeBlock(2000, 0xFFFFFFFF, 1, 0) + kId3v1, -160, false, {}},
        {startTag(item, whole + 1), 0, false, {}},
    };
    for (const auto& [bytes, position, ok, items] : cases) {
        APEv2 tag;
        ASSERT_EQ(readTag(tag, bytes, position), ok) << testing::PrintToString(bytes);
        EXPECT_EQ(pairsOf(tag), items) << testing::PrintToString(bytes);
    }
}

TEST(APEv2, EveryReadReleasesWhatTheLastOneLeft)
{
    const std::string bytes = ape(2000, {{"Front", "1"}, {"Only", "f"}}, true) + kAudio + ape(2000, {{"Back", "2"}}, true);
    const size_t before = ZELDebugMemory().ownBlocks;
    APEv2 tag;
    ASSERT_TRUE(readTag(tag, bytes, 0));
    EXPECT_EQ(pairsOf(tag), (Pairs{{L"Front", L"1"}, {L"Only", L"f"}}));
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before + 3) << "the block and two items";
    ASSERT_TRUE(readTag(tag, bytes, -32));
    EXPECT_EQ(pairsOf(tag), (Pairs{{L"Back", L"2"}}));
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before + 2) << "the first block and items released";
    EXPECT_FALSE(readTag(tag, std::string(32, 'x'), -32));
    EXPECT_EQ(pairsOf(tag), (Pairs{{L"Back", L"2"}})) << "32 bytes that are no APE block change nothing";

    // A key that is not ASCII fails the read; the item it was read into is released.
    EXPECT_TRUE(thrown<CharsetConvertException>([&] { readTag(tag, endTag(apeItem({"A", "1"}) + apeItem({"K\xC4y", "v"})), -32); }));
    EXPECT_EQ(pairsOf(tag), (Pairs{{L"A", L"1"}}));
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before + 2) << "the block and the item read before";
}

} // namespace
