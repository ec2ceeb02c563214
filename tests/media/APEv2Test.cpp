// APE tags: the places a tag is found, how items are decoded by type, what a
// damaged item area gives, and sizes the file cannot hold.
#define ZEL_SOURCE "tests/media/APEv2Test"
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "media/APEv2.h"
#include "support/TagBuilder.h"
#include "support/TempDir.h"
#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/File.h"
#include "zel/FileName.h"
#include "zel/Writer.h"

using namespace ZELd;
using tagfix::ApeItem;
using tagfix::apeBlock;
using tagfix::apeItem;
using tagfix::le32;

namespace {

using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;

Pairs pairsOf(const APEv2& tag)
{
    Pairs out;
    for (const APEv2Item* item : tag.items()) out.emplace_back(item->key().str(), item->value().str());
    return out;
}

const std::vector<ApeItem> kItems = {{"Title", "Song"}, {"Artist", "Band"}, {"Year", "2001"}};
const Pairs kPairs = {{L"Title", L"Song"}, {L"Artist", L"Band"}, {L"Year", L"2001"}};
// Audio whose last 32 bytes read as an item named Junk if a walk starts too early.
const std::string kAudio = std::string(200, '\xFF') + apeItem({"Junk", std::string(19, 'j')});
const std::string kId3v1 = tagfix::id3v1("T");
constexpr uint32_t kHeaderFlags = tagfix::kApeHasHeader | tagfix::kApeIsHeader;

// The item area given, ending a file (footer at -32) or starting it (header at 0).
std::string endTag(const std::string& area, uint32_t count = 1)
{
    return kAudio + area + apeBlock(2000, static_cast<uint32_t>(area.size() + 32), count, 0);
}
std::string startTag(const std::string& area, uint32_t count = 1)
{
    const uint32_t size = static_cast<uint32_t>(area.size() + 32);
    return apeBlock(2000, size, count, kHeaderFlags) + area + apeBlock(2000, size, count, tagfix::kApeHasHeader) + kAudio;
}

class APEv2File : public ::testing::Test {
protected:
    // A new file holding the bytes.
    String write(const std::string& bytes)
    {
        const std::string path = dir_ / (std::to_string(files_++) + ".mp3");
        tagfix::writeFile(path, bytes);
        return fromNativePath(path.c_str());
    }
    // As the tag reader does it: the 32 bytes at the place, then read().
    static bool readAt(APEv2& tag, File& file, long long position)
    {
        char block[32];
        file.seek(position, position < 0 ? 2 : 0);
        if (file.read(block, sizeof block) != sizeof block) return false;
        return tag.read(file, block, position);
    }

    testsupport::TempDir dir_;
    int files_ = 0;
};

// The debug report written to a file while the object lives.
struct ReportToFile {
    explicit ReportToFile(const std::string& path) : fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644))
    {
        ZELDebugSetGlobalReport(&writer);
    }
    ~ReportToFile()
    {
        ZELDebugSetGlobalReport(nullptr);
        writer.flush();
        ::close(fd);
    }
    int fd;
    FileWriter writer{fd, nullptr};
};

struct Place {
    const char* name;
    std::string bytes;
    long long position;
    uint32_t version;
};

TEST_F(APEv2File, SameItemsWhereverTheTagLies)
{
    const Place places[] = {
        {"v2 with header ending the file", kAudio + tagfix::ape(2000, kItems, true), -32, 2000},
        {"v2 with header before ID3v1", kAudio + tagfix::ape(2000, kItems, true) + kId3v1, -160, 2000},
        {"v1 without header before ID3v1", kAudio + tagfix::ape(1000, kItems, false) + kId3v1, -160, 1000},
        {"v2 at the start", tagfix::ape(2000, kItems, true) + kAudio, 0, 2000},
    };
    for (const Place& p : places) {
        for (bool search : {false, true}) {
            SCOPED_TRACE(std::string(p.name) + (search ? ", searched" : ", given"));
            File file(write(p.bytes), 1, 438);
            APEv2 tag;
            ASSERT_TRUE(search ? tag.read(file, nullptr, 0) : readAt(tag, file, p.position));
            EXPECT_EQ(pairsOf(tag), kPairs);
            EXPECT_EQ(tag.version(), p.version);
            EXPECT_EQ(tag.count(), 3u);
        }
    }

    File none(write(std::string(400, '\0')), 1, 438);
    APEv2 tag;
    EXPECT_FALSE(tag.read(none, nullptr, 0));
    EXPECT_EQ(tag.version(), 0u);
}

struct ItemCase {
    const char* name;
    ApeItem item;
    std::wstring value;
};

TEST_F(APEv2File, ValuesDecodedByItemTypeAndLatin1FallbackReported)
{
    const ItemCase cases[] = {
        {"text in UTF-8", {"Title", "Caf\xC3\xA9"}, L"Caf\u00E9"},
        {"text: the first of several values", {"Artist", std::string("Song\0Other", 10)}, L"Song"},
        {"text: blanks at both ends", {"Album", " \t Record \r\n"}, L"Record"},
        {"text, read-only flag", {"Genre", "Rock", 1}, L"Rock"},
        {"text: empty", {"Empty", ""}, L""},
        {"text not in UTF-8: Latin-1", {"Comment", "\xE9"}, L"\u00E9"},
        {"binary", {"Cover", std::string("ab\x01\xFF\0tail", 9), 2}, L"ab.\u00FF"},
        {"binary is not trimmed", {"Blob", " bin ", 2}, L" bin "},
        {"external link", {"Link", "http://example.org/", 4}, L""},
        {"reserved", {"Other", "data", 6}, L""},
    };
    std::string area;
    for (const ItemCase& c : cases) area += apeItem(c.item);
    File file(write(endTag(area, static_cast<uint32_t>(std::size(cases)))), 1, 438);
    APEv2 tag;
    {
        ReportToFile bound(dir_ / "report.txt");
        ASSERT_TRUE(readAt(tag, file, -32));
    }
    ASSERT_EQ(tag.items().size(), std::size(cases));
    for (size_t i = 0; i < std::size(cases); ++i) {
        const ItemCase& c = cases[i];
        SCOPED_TRACE(c.name);
        const APEv2Item& item = *tag.items()[i];
        EXPECT_EQ(item.key().str(), std::wstring(c.item.key.begin(), c.item.key.end()));
        EXPECT_EQ(item.value().str(), c.value);
        EXPECT_EQ(item.size(), c.item.value.size());
        EXPECT_EQ(item.flags(), static_cast<int32_t>(c.item.flags));
    }

    // Only the value that is not UTF-8 is reported, in three traces.
    const std::string report = tagfix::readFile(dir_ / "report.txt");
    const size_t failed = report.find("UTF8Decoder::decode failed. retry Latin1Decoder\n");
    const size_t item = report.find("Item size[1] flags[0] type[0] ");
    const size_t error = report.find("CharsetConvertException: ");
    const size_t raw = report.find(" key[Comment] [\xC3\xA9]\n");
    EXPECT_EQ(failed, 0u) << report;
    ASSERT_NE(raw, std::string::npos) << report;
    EXPECT_EQ(raw + std::string(" key[Comment] [\xC3\xA9]\n").size(), report.size()) << report;
    EXPECT_LT(failed, item);
    EXPECT_LT(item, error);
    EXPECT_LT(error, raw);
}

struct AreaCase {
    const char* name;
    std::string area;
    Pairs items;
};

TEST_F(APEv2File, DamagedItemAreaKeepsWhatCanBeRead)
{
    const std::string first = apeItem({"A", "1"});
    const std::string next = apeItem({"Next", "v"});
    const std::string tail = "abc" + next;
    const AreaCase cases[] = {
        {"value one byte past the area", first + le32(static_cast<uint32_t>(tail.size() + 1)) + le32(0) + "Long" + '\0' + tail,
         {{L"A", L"1"}, {L"Long", L""}}},
        {"key without its zero byte", first + le32(0) + le32(0) + "Unended", {{L"A", L"1"}, {L"Unended", L""}}},
        {"key without its zero byte, value size set", first + le32(5) + le32(0) + "Unended", {{L"A", L"1"}, {L"Unended", L""}}},
        {"8 bytes left", first + le32(0) + le32(0), {{L"A", L"1"}}},
        {"1 byte left", first + "K", {{L"A", L"1"}}},
        {"9 bytes left", first + le32(0) + le32(0) + "K", {{L"A", L"1"}, {L"K", L""}}},
    };
    for (const AreaCase& c : cases) {
        for (long long position : {-32LL, 0LL}) {
            SCOPED_TRACE(std::string(c.name) + (position ? ", at the end" : ", at the start"));
            File file(write(position ? endTag(c.area) : startTag(c.area)), 1, 438);
            APEv2 tag;
            ASSERT_TRUE(readAt(tag, file, position));
            EXPECT_EQ(pairsOf(tag), c.items);
        }
    }
}

TEST_F(APEv2File, HeaderFieldsAsStoredAndText)
{
    const std::string area = apeItem({"Title", "Song"}) + apeItem({"Cover", "img", 2});
    ASSERT_EQ(area.size(), 35u);
    struct {
        uint32_t version, count, flags;
        std::wstring text;
    } cases[] = {
        {2000, 7, tagfix::kApeHasHeader, L"APETAGEX version[2000] size[67] count[7] flags[80000000]"},
        {1000, 0, 0, L"APETAGEX version[1000] size[67] count[0] flags[0]"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.version);
        const bool header = c.flags & tagfix::kApeHasHeader;
        std::string bytes = kAudio + (header ? apeBlock(c.version, 67, c.count, c.flags | tagfix::kApeIsHeader) : "");
        File file(write(bytes + area + apeBlock(c.version, 67, c.count, c.flags) + kId3v1), 1, 438);
        APEv2 tag;
        ASSERT_TRUE(readAt(tag, file, -160));
        EXPECT_EQ(tag.toString().str(), c.text);
        EXPECT_EQ(tag.version(), c.version);
        EXPECT_EQ(tag.flags(), static_cast<int32_t>(c.flags));
        ASSERT_EQ(tag.items().size(), 2u) << "the walk, not the count field, decides";
        EXPECT_EQ(tag.items()[0]->toString().str(), L"size[4] flags[0] key[Title] value[Song]");
        EXPECT_EQ(tag.items()[1]->toString().str(), L"size[3] flags[2] key[Cover] value[img]");
    }
}

TEST_F(APEv2File, SecondReadLeavesOnlyTheSecondTag)
{
    const std::string front = tagfix::ape(2000, {{"Front", "1"}, {"Only", "f"}}, true);
    File file(write(front + kAudio + tagfix::ape(2000, {{"Back", "2"}}, true)), 1, 438);
    const size_t before = ZELDebugMemory().ownBlocks;
    APEv2 tag;
    ASSERT_TRUE(readAt(tag, file, 0));
    EXPECT_EQ(pairsOf(tag), (Pairs{{L"Front", L"1"}, {L"Only", L"f"}}));
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before + 3) << "the block and two items";

    ASSERT_TRUE(readAt(tag, file, -32));
    EXPECT_EQ(pairsOf(tag), (Pairs{{L"Back", L"2"}}));
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before + 2) << "the first block and items released";

    EXPECT_FALSE(tag.read(file, std::string(32, 'x').data(), -32));
    EXPECT_EQ(pairsOf(tag), (Pairs{{L"Back", L"2"}})) << "32 bytes that are no APE block change nothing";
}

TEST_F(APEv2File, SizeFieldCheckedAgainstTheFileBeforeAllocating)
{
    const std::string item = apeItem({"Title", "Song"});
    const std::string ahead = std::string(32, '\0') + item; // all the bytes before the footer
    const uint32_t fits = static_cast<uint32_t>(ahead.size());
    const auto atStart = [&](uint32_t size) {
        return apeBlock(2000, size, 1, kHeaderFlags) + item + apeBlock(2000, static_cast<uint32_t>(item.size() + 32), 1, 0) + kAudio;
    };
    const uint32_t whole = static_cast<uint32_t>(atStart(0).size());
    struct {
        const char* name;
        std::string bytes;
        long long position;
        bool ok;
        Pairs items;
    } cases[] = {
        {"every byte before the footer", ahead + apeBlock(1000, fits, 1, 0), -32, true, {{L"Title", L"Song"}}},
        {"31: less than the footer", kAudio + item + apeBlock(2000, 31, 1, 0), -32, true, {}},
        {"0", kAudio + item + apeBlock(2000, 0, 1, 0) + kId3v1, -160, true, {}},
        {"31 at the start", atStart(31), 0, true, {}},
        {"0 at the start", atStart(0), 0, true, {}},
        {"one byte more than before the footer", ahead + apeBlock(1000, fits + 1, 1, 0), -32, false, {}},
        {"one byte more, before ID3v1", ahead + apeBlock(1000, fits + 1, 1, 0) + kId3v1, -160, false, {}},
        {"0x7FFFFFFF", kAudio + item + apeBlock(2000, 0x7FFFFFFF, 1, 0), -32, false, {}},
        {"0xFFFFFFFF", kAudio + item + apeBlock(2000, 0xFFFFFFFF, 1, 0) + kId3v1, -160, false, {}},
        {"0x7FFFFFFF at the start", atStart(0x7FFFFFFF), 0, false, {}},
        {"a byte more than the file, at the start", atStart(whole + 1), 0, false, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        File file(write(c.bytes), 1, 438);
        const size_t before = ZELDebugMemory().ownBytes;
        APEv2 tag;
        ASSERT_EQ(readAt(tag, file, c.position), c.ok);
        EXPECT_EQ(pairsOf(tag), c.items);
        if (!c.ok) {
            EXPECT_EQ(ZELDebugMemory().ownBytes, before) << "nothing allocated";
        }
    }
}

TEST_F(APEv2File, KeyThatIsNotAsciiFailsTheReadWithoutLeaking)
{
    File file(write(endTag(apeItem({"A", "1"}) + apeItem({"K\xC4y", "v"}), 2)), 1, 438);
    const size_t before = ZELDebugMemory().ownBlocks;
    APEv2 tag;
    std::wstring error;
    try {
        readAt(tag, file, -32);
    } catch (Exception* e) {
        error = e->className();
        e->destroy();
    }
    EXPECT_EQ(error, L"CharsetConvertException");
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before + 2) << "the block and the item read before; the failed item released";
    EXPECT_EQ(pairsOf(tag), (Pairs{{L"A", L"1"}}));
}

} // namespace
