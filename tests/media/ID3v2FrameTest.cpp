// ID3v2 frames: header fields, what each id keeps, text decoding, and reads bounded by the frame and the body.
#define ZEL_SOURCE "tests/media/ID3v2FrameTest"
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "media/ID3v2.h"
#include "support/TagBuilder.h"
#include "support/TempDir.h"
#include "zel/File.h"
#include "zel/FileName.h"

using namespace ZELd;
using namespace std::string_literals;
using tagfix::Frame;

namespace {

std::string raw(std::initializer_list<int> bytes)
{
    std::string s;
    for (int b : bytes) s += static_cast<char>(b);
    return s;
}

// Picture-like bytes: not text, first byte not zero.
std::string pic(size_t n)
{
    std::string s;
    for (size_t i = 0; i < n; ++i) s += static_cast<char>(0x80 + i * 7);
    return s;
}

// Reads a frame from a heap block holding exactly the frame and what follows
// it, so that a read past the block's end is caught by the sanitizer.
size_t readAtEnd(ID3v2Frame& f, const std::string& bytes, const std::string& after = "")
{
    const std::string all = bytes + after;
    std::vector<char> block(all.begin(), all.end());
    return f.read(block.data(), block.data() + block.size());
}

// The fields a frame should end up with; those not named stay empty or zero.
struct Want {
    int encoding = 0;
    int type = 0;
    std::wstring url = L"";
    std::wstring description = L"";
    std::wstring text = L"";
    std::string binary = "";
};

void expectFields(const ID3v2Frame& f, const Want& w)
{
    EXPECT_EQ(f.encoding(), w.encoding);
    EXPECT_EQ(f.type(), w.type);
    EXPECT_EQ(f.url().str(), w.url);
    EXPECT_EQ(f.description().str(), w.description);
    EXPECT_EQ(f.text().str(), w.text);
    EXPECT_EQ(std::string(f.binary().data(), f.binary().length()), w.binary);
}

// Frames are read on behalf of real tags: 2.2 and 2.3 with plain sizes, and
// 2.4 whose sizes read seven bits a byte.
class ID3v2Frames : public ::testing::Test {
protected:
    void SetUp() override
    {
        load(v2_, tagfix::id3v2(2, {{"TT2", tagfix::textBody("x")}}), 2, 8);
        load(v3_, tagfix::id3v2(3, {{"TIT2", tagfix::textBody("x")}}), 3, 8);
        load(v4s_, tagfix::id3v2(4, {{"TIT2", tagfix::textBody(std::string(199, 'a'))}}, 100), 4, 7);
    }
    const ID3v2& owner(int major) const { return major == 2 ? v2_ : v3_; }

    ID3v2 v2_, v3_, v4s_;

private:
    void load(ID3v2& t, const std::string& bytes, int version, int fsbits)
    {
        const std::string path = dir_ / ("owner" + std::to_string(version) + ".mp3");
        tagfix::writeFile(path, bytes);
        File f(fromNativePath(path.c_str()), 1, 0);
        ASSERT_TRUE(t.read(f, nullptr));
        ASSERT_EQ(t.version(), version);
        ASSERT_EQ(t.fsbits(), fsbits);
    }
    testsupport::TempDir dir_;
};

struct Row {
    const char* name;
    int major;
    Frame frame;
    Want want;
};

std::vector<Row> dispatchRows()
{
    const std::string x64(64, 'x');
    return {
        {"AENC", 3, {"AENC", "owner\0"s + raw({1, 2, 3, 4})}, {.url = L"owner", .binary = raw({1, 2, 3, 4})}},
        {"APIC", 3, {"APIC", "\0image/png\0"s + raw({3, 0}) + pic(100)}, {.type = 3, .url = L"image/png", .binary = pic(100)}},
        {"APIC UTF-16 description", 3, {"APIC", raw({1}) + "image/jpeg" + raw({0, 4, 0xFF, 0xFE, 'c', 0, 'v', 0, 0, 0}) + pic(10)},
         {.encoding = 1, .type = 4, .url = L"image/jpeg", .description = L"cv", .binary = pic(10)}},
        {"APIC data length smaller", 3, {"APIC", tagfix::be(5, 4) + "\0image/png\0"s + raw({3, 0}) + pic(10), 0x0001},
         {.type = 3, .url = L"image/png", .binary = pic(5)}},
        {"APIC data length larger", 3, {"APIC", tagfix::be(0x1000, 4) + "\0image/png\0"s + raw({3, 0}) + pic(10), 0x0001},
         {.type = 3, .url = L"image/png", .binary = pic(10)}},
        {"APIC data length 0", 3, {"APIC", tagfix::be(0, 4) + "\0image/png\0"s + raw({3, 0}) + pic(10), 0x0001},
         {.type = 3, .url = L"image/png", .binary = pic(10)}},
        {"APIC data length cut short", 3, {"APIC", raw({0, 0, 1}), 0x0001}, {}},
        {"other A", 3, {"ASPI", raw({0, 0, 0, 1, 2})}, {.binary = raw({0, 0, 0, 1, 2})}},
        {"COMM", 3, {"COMM", "\0eng\0nice"s}, {.url = L"eng", .text = L"nice"}},
        {"COMM, ENG is no language", 3, {"COMM", "\0ENG\0x"s}, {.description = L"ENG", .text = L"x"}},
        {"COM", 2, {"COM", "\0engd\0c"s}, {.url = L"eng", .description = L"d", .text = L"c"}},
        {"CRA", 2, {"CRA", "own\0"s + raw({1, 2})}, {.url = L"own", .binary = raw({1, 2})}},
        {"other C", 3, {"CTOC", "toc\0"s + raw({3})}, {.binary = "toc\0"s + raw({3})}},
        {"GEOB", 3, {"GEOB", "\0text/plain\0a.txt\0desc\0"s + raw({9, 8, 7})},
         {.url = L"text/plain", .description = L"desc", .text = L"a.txt", .binary = raw({9, 8, 7})}},
        {"GEO", 2, {"GEO", "\0a/b\0f\0d\0"s + raw({7})}, {.url = L"a/b", .description = L"d", .text = L"f", .binary = raw({7})}},
        {"other G", 3, {"GRID", "owner\0"s + raw({5, 1})}, {.binary = "owner\0"s + raw({5, 1})}},
        {"IPLS", 3, {"IPLS", "\0producer\0Bob\0"s}, {.text = L"producer"}},
        {"IPL", 2, {"IPL", raw({3}) + "role\0name"s}, {.encoding = 3, .text = L"role"}},
        {"other I", 3, {"ITUN", raw({3}) + "abc"}, {.binary = raw({3}) + "abc"}},
        {"PIC", 2, {"PIC", "\0JPG"s + raw({3, 0}) + pic(10)}, {.type = 3, .url = L"JPG", .binary = pic(10)}},
        {"PIC format cut short", 2, {"PIC", "\0PN"s}, {.url = L"PN"}},
        {"PRIV", 3, {"PRIV", "owner\0"s + raw({1, 2, 3})}, {.url = L"owner", .binary = raw({1, 2, 3})}},
        {"other P: PCNT", 3, {"PCNT", raw({0, 0, 0, 5})}, {.binary = raw({0, 0, 0, 5})}},
        {"other P: POPM", 3, {"POPM", "a@b\0"s + raw({0xC8, 0, 0, 0, 1})}, {.binary = "a@b\0"s + raw({0xC8, 0, 0, 0, 1})}},
        {"TXXX", 3, {"TXXX", "\0key\0value"s}, {.description = L"key", .text = L"value"}},
        {"TXX", 2, {"TXX", "\0k\0v"s}, {.description = L"k", .text = L"v"}},
        {"other T keeps the first value, trimmed", 3, {"TIT2", "\0  Hi \t\0b"s}, {.text = L"Hi"}},
        {"TT2", 2, {"TT2", "\0Hello"s}, {.text = L"Hello"}},
        {"UFID 64 bytes", 3, {"UFID", "a\0"s + x64}, {.url = L"a", .text = std::wstring(64, L'x'), .binary = x64}},
        {"UFID 65 bytes", 3, {"UFID", "a\0"s + x64 + "y"}, {.url = L"a", .binary = x64}},
        {"UFI", 2, {"UFI", "o\0id1"s}, {.url = L"o", .text = L"id1", .binary = "id1"}},
        {"USLT", 3, {"USLT", "\0engd\0lyrics"s}, {.url = L"eng", .description = L"d", .text = L"lyrics"}},
        {"ULT", 2, {"ULT", "\0eng\0words"s}, {.url = L"eng", .text = L"words"}},
        {"other U: USER", 3, {"USER", "\0engterms"s}, {.url = L"eng", .text = L"terms"}},
        {"WXXX", 3, {"WXXX", "\0home\0http://x"s}, {.url = L"http://x", .description = L"home"}},
        {"WXXX URL is Latin-1 whatever the encoding", 3, {"WXXX", raw({1, 0xFF, 0xFE, 'h', 0, 0, 0, 'u', 0xE9})},
         {.encoding = 1, .url = L"u\u00E9", .description = L"h"}},
        {"WXX", 2, {"WXX", "\0h\0u"s}, {.url = L"u", .description = L"h"}},
        {"other W", 3, {"WOAR", "a/b"s}, {.url = L"a/b"}},
        {"other W, 2.2", 2, {"WAR", "a/b\0c"s}, {.url = L"a/b"}},
        {"RVA2", 3, {"RVA2", "track\0"s + raw({1, 0, 0})}, {.binary = "track\0"s + raw({1, 0, 0})}},
        {"MCDI", 3, {"MCDI", raw({0, 1, 2, 3})}, {.binary = raw({0, 1, 2, 3})}},
    };
}

TEST_F(ID3v2Frames, EachIdKeepsItsFields)
{
    for (const Row& r : dispatchRows()) {
        SCOPED_TRACE(r.name);
        const std::string bytes = tagfix::frame(r.major, r.frame, false);
        ID3v2Frame f(owner(r.major));
        EXPECT_EQ(readAtEnd(f, bytes), bytes.size());
        EXPECT_EQ(f.id().str(), std::wstring(r.frame.id.begin(), r.frame.id.end()));
        EXPECT_EQ(f.size(), r.frame.body.size());
        EXPECT_EQ(f.flags(), static_cast<int16_t>(r.frame.flags));
        expectFields(f, r.want);
    }
}

TEST_F(ID3v2Frames, BodyCutShortIsReadOnlyUpToTheBodysEnd)
{
    // The size field still claims the whole body; only the bytes up to _end may be read.
    for (const Row& r : dispatchRows()) {
        const std::string bytes = tagfix::frame(r.major, r.frame, false);
        const size_t header = r.major == 2 ? 6 : 10;
        for (size_t cut = header + 1; cut < bytes.size(); ++cut) {
            SCOPED_TRACE(std::string(r.name) + " cut at " + std::to_string(cut));
            ID3v2Frame f(owner(r.major));
            EXPECT_EQ(readAtEnd(f, bytes.substr(0, cut)), bytes.size());
            EXPECT_LE(f.binary().length(), cut - header);
        }
    }
}

TEST_F(ID3v2Frames, HeaderGeometryAndFlags)
{
    const std::string tt2 = tagfix::frame(2, {"TT2", "\0Hello"s}, false);
    ASSERT_EQ(tt2.substr(3, 3), raw({0, 0, 6}));
    ID3v2Frame v2(v2_);
    EXPECT_EQ(readAtEnd(v2, tt2, raw({0x80, 0})), 12u) << "2.2 has no flags: the bytes after the frame are not read as such";
    EXPECT_EQ(v2.id().str(), L"TT2");
    EXPECT_EQ(v2.flags(), 0);
    EXPECT_EQ(v2.text().str(), L"Hello");

    struct Case { uint16_t stored; int flags; } cases[] = {{0x0080, 0x0080}, {0x4000, 0x4000}, {0x8000, -32768}, {0xFFFF, -1}, {0x0001, 1}};
    for (const Case& c : cases) {
        const std::string bytes = tagfix::frame(3, {"TIT2", "\0Hello\0"s, c.stored}, false);
        ID3v2Frame f(v3_);
        EXPECT_EQ(readAtEnd(f, bytes), 17u);
        EXPECT_EQ(f.flags(), c.flags);
        EXPECT_EQ(f.text().str(), L"Hello") << "flags do not change how a text frame is read";
    }

    // A frame of size 0 yields nothing but its header.
    for (int major : {2, 3}) {
        ID3v2Frame f(owner(major));
        EXPECT_EQ(readAtEnd(f, tagfix::frame(major, {major == 2 ? "TT2" : "TIT2", ""}, false), "\0TAL"s), major == 2 ? 6u : 10u);
        expectFields(f, {});
    }
}

TEST_F(ID3v2Frames, NumbersFollowTheTagsSizeReading)
{
    // 00 00 01 48 is 200 with seven bits a byte, 328 plainly.
    const std::string title = "TIT2"s + raw({0, 0, 1, 0x48, 0, 0}) + tagfix::textBody(std::string(199, 'a'));
    ID3v2Frame seven(v4s_), eight(v3_);
    EXPECT_EQ(readAtEnd(seven, title), 210u);
    EXPECT_EQ(seven.size(), 200u);
    EXPECT_EQ(readAtEnd(eight, title), 338u);
    EXPECT_EQ(eight.text().str(), std::wstring(199, L'a')) << "the text stops at the body's end";

    // The data length of a picture uses the same reading: 00 00 01 00 is 128 or 256.
    const std::string apic = tagfix::frame(4, {"APIC", raw({0, 0, 1, 0}) + "\0image/png\0"s + raw({3, 0}) + pic(200), 0x0001}, true);
    ID3v2Frame picture(v4s_);
    EXPECT_EQ(readAtEnd(picture, apic), apic.size());
    EXPECT_EQ(std::string(picture.binary().data(), picture.binary().length()), pic(128));
}

TEST(ID3v2TextLength, TerminatorsAndTheirWidth)
{
    struct Case { int encoding; std::string bytes; size_t length; size_t skipped; } cases[] = {
        {0, "Title\0x"s, 5, 6},
        {0, "abcd", 4, 5},
        {1, raw({0xFF, 0xFE, 0x41, 0, 0, 0, 0x42, 0}), 4, 6},
        {1, raw({0xFF, 0xFE, 7, 1, 0, 0}), 4, 6},
        {1, raw({0xFF, 0xFE, 0x41, 0, 0, 0x42, 0, 0}), 6, 8}, // zeros at 3 and 4 lie in two units
        {2, raw({0, 0x41, 0, 0x42, 0, 0}), 4, 6},
        {1, "abcde", 5, 7},
        {2, raw({0x41, 0, 0x42, 0, 0}), 5, 7}, // the last zero makes no whole unit
        {1, raw({0, 0}), 0, 2},
        {1, "", 0, 2},
        {3, raw({0xC3, 0xA9, 0}), 2, 3},
        {7, "ab\0c"s, 2, 3},
        {-1, "\0"s, 0, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.encoding);
        const std::vector<char> b(c.bytes.begin(), c.bytes.end());
        const size_t length = __decode_length__(static_cast<signed char>(c.encoding), b.empty() ? "" : b.data(), b.size());
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(__skip_length__(static_cast<signed char>(c.encoding), length), c.skipped);
    }
}

TEST_F(ID3v2Frames, TextReadingsStayInsideTheFrame)
{
    struct Case {
        const char* name;
        Frame frame;
        Want want;
        std::string after = ""; // bytes after the frame, inside the body
    } cases[] = {
        {"UTF-16 next string after the zero unit", {"TXXX", raw({1, 0xFF, 0xFE, 0x41, 0, 0, 0, 0x42, 0})},
         {.encoding = 1, .description = L"A", .text = L"B"}},
        {"UTF-16 zeros across units end nothing", {"TXXX", raw({1, 0xFF, 0xFE, 0x41, 0, 0, 0x42, 0, 0})},
         {.encoding = 1, .description = L"A\u4200"}},
        {"UTF-16 unit 07 01", {"TIT2", raw({1, 0xFF, 0xFE, 7, 1, 0, 0})}, {.encoding = 1, .text = L"\u0107"}},
        {"UTF-16 big-endian mark", {"TIT2", raw({1, 0xFE, 0xFF, 0, 'H', 0, 'i'})}, {.encoding = 1, .text = L"Hi"}},
        {"mark alone", {"TXXX", raw({1, 0xFF, 0xFE, 0, 0, 0xFF, 0xFE, 'v', 0})}, {.encoding = 1, .text = L"v"}},
        {"FE FF alone in encoding 2", {"TXXX", raw({2, 0xFE, 0xFF, 0, 0, 0, 'v'})}, {.encoding = 2, .text = L"v"}},
        {"UTF-16 without terminator at the end", {"TXXX", raw({1, 0xFF, 0xFE, 'a', 0, 'b'})}, {.encoding = 1, .description = L"a"}},
        {"UTF-8", {"TIT2", raw({3, 0xC3, 0xA9, 0})}, {.encoding = 3, .text = L"\u00E9"}},
        {"the same bytes in Latin-1", {"TIT2", raw({0, 0xC3, 0xA9, 0})}, {.text = L"\u00C3\u00A9"}},
        {"encoding 7 reads as Latin-1", {"TIT2", raw({7, 'c', 'a', 'f', 0xE9})}, {.encoding = 7, .text = L"caf\u00E9"}},
        {"encoding 0x80 reads as Latin-1", {"TIT2", raw({0x80, 0xE9, 0})}, {.encoding = -128, .text = L"\u00E9"}},
        {"invalid UTF-8, then the next string", {"TXXX", raw({3, 0xFF, 'x', 0}) + "ok"}, {.encoding = 3, .text = L"ok"}},
        {"invalid UTF-8 in a comment", {"COMM", raw({3}) + "eng" + raw({0xC0, 0x80, 0}) + "fine"},
         {.encoding = 3, .url = L"eng", .text = L"fine"}},
        {"comment of three bytes", {"COMM", "\0eng"s}, {.description = L"eng"}},
        {"no terminator: later readings find nothing", {"TXXX", "\0abc"s}, {.description = L"abc"}, "TIT2\0"s},
        {"no terminator in a comment", {"COMM", "\0engabc"s}, {.url = L"eng", .description = L"abc"}, "\0xyz"s},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string bytes = tagfix::frame(3, c.frame, false);
        ID3v2Frame f(v3_);
        EXPECT_EQ(readAtEnd(f, bytes, c.after), bytes.size());
        expectFields(f, c.want);
    }
}

TEST_F(ID3v2Frames, LanguageCodeIsTakenOnlyWhenValid)
{
    const struct { const char* code; bool taken; } cases[] = {
        {"eng", true}, {"fra", true}, {"XXX", true}, {"ENG", false}, {"en1", false}, {"Eng", false}, {"XXx", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        const std::wstring code(c.code, c.code + 3);
        EXPECT_EQ(__valid_language_code(std::vector<char>(c.code, c.code + 3).data()), c.taken);
        for (const char* id : {"COMM", "USLT", "USER"}) {
            const std::string bytes = tagfix::frame(3, {id, "\0"s + c.code + "d\0t"s}, false);
            ID3v2Frame f(v3_);
            readAtEnd(f, bytes);
            EXPECT_EQ(f.url().str(), c.taken ? code : L"") << id;
            // Not taken, the three bytes begin the next reading.
            const std::wstring& next = std::string(id) == "USER" ? f.text().str() : f.description().str();
            EXPECT_EQ(next, c.taken ? L"d" : code + L"d") << id;
        }
    }
}

TEST_F(ID3v2Frames, ToStringListsWhatTheFrameHolds)
{
    struct Case { Frame frame; std::wstring text; } cases[] = {
        {{"TIT2", "\0Hello\0"s}, L"TIT2 size[7] flags[0] encoding[0] type[0] text[Hello]"},
        {{"TIT2", "\0Hello\0"s, 0x8000}, L"TIT2 size[7] flags[ffff8000] encoding[0] type[0] text[Hello]"},
        {{"TIT2", "\xFFHi"s}, L"TIT2 size[3] flags[0] encoding[-1] type[0] text[Hi]"},
        {{"PRIV", "owner\0"s + std::string(100, 'z')},
         L"PRIV size[106] flags[0] encoding[0] type[0] url[owner] binary[100][" + std::wstring(40, L'z') + L"]"},
        {{"PCNT", raw({0, 0, 1, 5})}, L"PCNT size[4] flags[0] encoding[0] type[0] binary[4][....]"},
        {{"COMM", "\0engd\0t"s}, L"COMM size[7] flags[0] encoding[0] type[0] url[eng] description[d] text[t]"},
        {{"APIC", "\0image/png\0"s + raw({0x80}) + "cover\0DATA"s, 0x0002},
         L"APIC size[22] flags[2] encoding[0] type[-128] url[image/png] description[cover] binary[4][DATA]"},
    };
    for (const Case& c : cases) {
        ID3v2Frame f(v3_);
        readAtEnd(f, tagfix::frame(3, c.frame, false));
        EXPECT_EQ(f.toString().str(), c.text);
    }
}

} // namespace
