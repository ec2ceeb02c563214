// The ID3v2 reader: header test, frame-size probe, extended header, frame walk and traces, and what each frame keeps.
#define ZEL_SOURCE "tests/media/ID3v2Test"
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <tuple>
#include <vector>

#include "media/ID3v2.h"
#include "support/ReportCapture.h"
#include "support/TagBuilder.h"
#include "support/TempDir.h"
#include "zel/Debug.h"
#include "zel/File.h"
#include "zel/FileName.h"
#include "zel/Writer.h"

using namespace ZELd;
using namespace std::string_literals;
using tagfix::Frame;
using tagfix::textBody;

namespace {

std::string raw(std::initializer_list<int> bytes)
{
    std::string s;
    for (int b : bytes) s += static_cast<char>(b);
    return s;
}

// Picture-like bytes: not text, not zero.
std::string pic(size_t n) { return std::string(n, '\xA5'); }

// A tag header with the given major version and flags in front of a body taken as it is.
std::string tag(int major, const std::string& body, int flags = 0)
{
    return "ID3"s + static_cast<char>(major) + '\0' + static_cast<char>(flags) + tagfix::syncsafe(static_cast<uint32_t>(body.size()), 4) + body;
}

std::string patched(std::string s, size_t at, int value)
{
    s[at] = static_cast<char>(value);
    return s;
}

// The frame ids of a tag, comma separated.
std::wstring ids(const ID3v2& t)
{
    std::wstring out;
    for (const ID3v2Frame* f : t.frames()) out += (out.empty() ? L"" : L",") + f->id().str();
    return out;
}

// Reads a frame from a heap block holding exactly the given bytes, so that a
// read past the block's end is caught by the sanitizer.
size_t readAtEnd(ID3v2Frame& f, const std::string& bytes)
{
    std::vector<char> block(bytes.begin(), bytes.end());
    return f.read(block.data(), block.data() + block.size());
}

using Report = testsupport::ReportCapture;

const Frame kHello{"TIT2", textBody("Hello\0"s)}; // body of 7 bytes, 17 with its header
const Frame kWorld{"TPE1", textBody("World")};
const Frame k200{"TIT2", textBody(std::string(199, 'a'))}; // body of 200 bytes

class ID3v2Tag : public ::testing::Test {
protected:
    // Frames are read on behalf of real tags: 2.2 and 2.3 with plain sizes, 2.4 with seven bits a byte.
    void SetUp() override
    {
        ASSERT_TRUE(load(v2_, tagfix::id3v2(2, {{"TT2", textBody("x")}})));
        ASSERT_TRUE(load(v3_, tagfix::id3v2(3, {kHello})));
        ASSERT_TRUE(load(v4_, tagfix::id3v2(4, {k200}, 100)));
    }
    const ID3v2& owner(int major) const { return major == 2 ? v2_ : major == 3 ? v3_ : v4_; }
    std::wstring wpath() const { return {path_.begin(), path_.end()}; }

    // Writes the bytes to a new file and reads its tag, from the file alone or
    // with the bytes' start standing in for the header the caller already read.
    bool load(ID3v2& t, const std::string& bytes, bool withHeader = false)
    {
        path_ = dir_ / ("tag" + std::to_string(count_++) + ".mp3");
        tagfix::writeFile(path_, bytes);
        File f(fromNativePath(path_.c_str()), 1, 0);
        return t.read(f, withHeader ? bytes.data() : nullptr);
    }

    testsupport::TempDir dir_;
    std::string path_;
    int count_ = 0;
    ID3v2 v2_, v3_, v4_;
};

TEST_F(ID3v2Tag, HeaderBytesDecideWhetherATagIsRead)
{
    const std::string v22 = tagfix::id3v2(2, {{"TT2", textBody("Hello")}});
    const std::string v23 = tagfix::id3v2(3, {kHello});
    const wchar_t* refused = L" version[0] revision[0] flags[0] size[0] fsbits[0]";
    struct Case { const char* name; std::string bytes; const wchar_t* ids; const wchar_t* text; } cases[] = {
        {"2.2", v22, L"TT2", L"ID3 version[2] revision[0] flags[0] size[12] fsbits[8]"},
        {"2.3", tagfix::id3v2(3, {kHello}, 240), L"TIT2", L"ID3 version[3] revision[0] flags[0] size[257] fsbits[8]"},
        {"2.4, revision and flags shown widened with their sign", patched(tagfix::id3v2(4, {kHello}, 0, 0x80), 4, 0x90), L"TIT2", L"ID3 version[4] revision[-112] flags[ffffff80] size[17] fsbits[8]"},
        // Versions the test lets through walk with the 3-byte id geometry.
        {"major 0", patched(v22, 3, 0), L"TT2", L"ID3 version[0] revision[0] flags[0] size[12] fsbits[8]"},
        {"major 0xFF", patched(v22, 3, 0xFF), L"TT2", L"ID3 version[-1] revision[0] flags[0] size[12] fsbits[8]"},
        {"major 5", patched(v23, 3, 5), nullptr, refused},
        {"ID4", patched(v23, 2, '4'), nullptr, refused},
        // The size reading ignores top bits, so only the test can refuse these.
        {"size byte 6 top bit", patched(v23, 6, 0x80), nullptr, refused},
        {"size byte 9 top bit", patched(v23, 9, v23[9] | 0x80), nullptr, refused},
        {"nine bytes", v23.substr(0, 9), nullptr, refused},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ID3v2 t;
        EXPECT_EQ(load(t, c.bytes), c.ids != nullptr);
        EXPECT_EQ(t.toString().str(), c.text);
        EXPECT_EQ(ids(t), c.ids ? c.ids : L"");
        EXPECT_EQ(t.frames().isEmpty() ? L"" : t.frames()[0]->text().str(), c.ids ? L"Hello" : L"");
    }
}

TEST_F(ID3v2Tag, GivenHeaderAndFilePositionDoNotMatter)
{
    ID3v2 given, afterRead, own;
    ASSERT_TRUE(load(given, tagfix::id3v2(3, {kHello, kWorld}, 30) + std::string(64, '\xFF'), true));
    EXPECT_EQ(ids(given), L"TIT2,TPE1");
    // As the tag reader does: 32 bytes read first, then the tag from offset 10.
    File f(fromNativePath(path_.c_str()), 1, 0);
    char first[32];
    ASSERT_EQ(f.read(first, sizeof first), sizeof first);
    EXPECT_TRUE(afterRead.read(f, first));
    EXPECT_EQ(ids(afterRead), L"TIT2,TPE1");
    f.seek(7, 0);
    EXPECT_TRUE(own.read(f, nullptr)) << "without a header the file is read from its start";
    EXPECT_EQ(ids(own), L"TIT2,TPE1");
}

TEST_F(ID3v2Tag, ARefusedHeaderKeepsTheTagAndANewTagReplacesIt)
{
    ID3v2 t;
    ASSERT_TRUE(load(t, tagfix::id3v2(3, {kHello, kWorld})));
    EXPECT_FALSE(load(t, patched(tagfix::id3v2(3, {kHello}), 3, 9)));
    EXPECT_EQ(t.version(), 3);
    EXPECT_EQ(ids(t), L"TIT2,TPE1");
    EXPECT_TRUE(load(t, tagfix::id3v2(2, {{"TAL", textBody("Album")}})));
    EXPECT_EQ(t.version(), 2);
    EXPECT_EQ(ids(t), L"TAL") << "frames of the earlier tag are dropped";
}

TEST_F(ID3v2Tag, FrameSizeReadingIsTheFirstThatWalksTheChainConsistently)
{
    struct Case { const char* name; std::string bytes; int fsbits; const wchar_t* ids; uint32_t firstSize; } cases[] = {
        {"syncsafe 200 then 100 padding", tagfix::id3v2(4, {k200}, 100), 7, L"TIT2", 200},
        {"syncsafe 200 then 1000 padding", tagfix::id3v2(4, {k200}, 1000), 8, L"TIT2", 328},
        {"chain ends at the body's end", tagfix::id3v2(3, {kHello, kWorld}), 8, L"TIT2,TPE1", 7},
        {"frames after the padding are ignored",
         tag(3, tagfix::frame(3, kHello, false) + raw({0, 0, 0, 0}) + tagfix::frame(3, kWorld, false)), 8, L"TIT2", 7},
        {"empty body", tagfix::id3v2(3, {}), 8, L"", 0},
        {"all padding", tagfix::id3v2(3, {}, 64), 8, L"", 0},
        {"last frame empty, header ends at the body's end", tagfix::id3v2(3, {kHello, {"TPE1", ""}}), 0, L"", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Report report;
        ID3v2 t;
        EXPECT_EQ(load(t, c.bytes), c.fsbits != 0);
        EXPECT_EQ(t.fsbits(), c.fsbits);
        EXPECT_EQ(ids(t), c.ids);
        EXPECT_EQ(t.version(), c.bytes[3]) << "the header copy is made even when the frames are refused";
        EXPECT_EQ(t.frames().isEmpty() ? 0u : t.frames()[0]->size(), c.firstSize);
        EXPECT_EQ(report.text.find(L"Invalid Frames") != std::wstring::npos, c.fsbits == 0) << report.text;
    }
}

TEST_F(ID3v2Tag, InvalidFramesAreTracedWithBothProbesOfTheChain)
{
    const std::string hello = tagfix::frame(3, kHello, false);
    struct Case { const char* name; std::string body; std::wstring probe8, probe7; } cases[] = {
        {"negative id byte", hello + tagfix::frame(3, {"\xFFIT2", "x"}, false), L"[TIT2][7]\nfalse\nfalse [11][1C][ffffffff]\n", L""},
        {"empty last frame", hello + tagfix::frame(3, {"TPE1", ""}, false), L"[TIT2][7]\nfalse [11][1B][54]\n", L""},
        // 00 00 03 E8 is 1000 plainly and 488 with seven bits a byte.
        {"size past the end", "TIT2" + tagfix::be(1000, 4) + raw({0, 0}) + textBody("Hello\0\0\0\0"s), L"[TIT2][1000]\nfalse [3F2][14][0]\n",
         L"[TIT2][488]\nfalse [1F2][14][0]\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ID3v2 t;
        Report report;
        EXPECT_FALSE(load(t, tag(3, c.body, 0x20)));
        EXPECT_EQ(report.text, L"ID3v2 Invalid Frames [" + wpath() + L"]\n" + c.probe8 + (c.probe7.empty() ? c.probe8 : c.probe7));
        EXPECT_EQ(t.toString().str(), L"ID3 version[3] revision[0] flags[20] size[" + std::to_wstring(c.body.size()) + L"] fsbits[0]");
        EXPECT_TRUE(t.frames().isEmpty());
    }
}

TEST_F(ID3v2Tag, WalkStopsAtAnIdThatDoesNotBeginWithALetter)
{
    // Digits pass the probe but cannot begin a frame id in the walk.
    const std::string body = tagfix::frame(3, kHello, false) + tagfix::frame(3, {"1ABC", "zz"}, false) + tagfix::frame(3, kWorld, false);
    Report report;
    ID3v2 t;
    EXPECT_TRUE(load(t, tag(3, body + std::string(8, '\0'))));
    EXPECT_EQ(ids(t), L"TIT2") << "the frames before the stop stay";
    EXPECT_EQ(report.text, L"ID3v2 Frame Read Failed [" + wpath() + L"]\n");
}

TEST_F(ID3v2Tag, ExtendedHeaderLengthCountsFromItsOwnStart)
{
    const std::string frames = tagfix::frame(4, kHello, true);
    struct Case { std::string body; const wchar_t* ids; const wchar_t* trace; } cases[] = {
        {raw({0, 0, 0, 6, 0x81, 0}) + frames, L"TIT2", L"Number of flag bytes [-127]\n"},
        {raw({0, 0, 0, 12, 1, 0, 9, 9, 9, 9, 9, 9}) + frames + std::string(5, '\0'), L"TIT2", L"Number of flag bytes [1]\n"},
        {raw({0x7F, 0x7F, 0x7F, 0x7F, 1, 0}) + frames, L"", L"Number of flag bytes [1]\n"}, // beyond the body
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.trace);
        Report report;
        ID3v2 t;
        EXPECT_TRUE(load(t, tag(4, c.body, 0x40)));
        EXPECT_EQ(ids(t), c.ids);
        EXPECT_EQ(report.text, c.trace);
    }
    // Fewer than 6 bytes cannot hold one: this is reported and nothing beyond is read.
    for (const std::string& body : {""s, raw({0, 0, 0}), "TIT2\x7F"s}) {
        SCOPED_TRACE(body.size());
        Report report;
        ID3v2 t;
        load(t, tag(3, body, 0x40));
        EXPECT_NE(report.text.find(L"Assertion failed [_begin + 6 <= _end] at media/ID3v2("), std::wstring::npos) << report.text;
        EXPECT_TRUE(t.frames().isEmpty());
    }
}

TEST_F(ID3v2Tag, BodyTheFileCannotHoldIsRefused)
{
    ID3v2 huge, cut;
    const size_t before = ZELDebugMemory().ownBytes;
    EXPECT_FALSE(load(huge, "ID3\x03\0\0"s + raw({0x7F, 0x7F, 0x7F, 0x7F}) + tagfix::frame(3, kHello, false)));
    EXPECT_LT(ZELDebugMemory().ownBytes, before + 0x0FFFFFFF) << "no block of the claimed size is held";
    // A size within the file's length but past its end: the body comes short.
    const std::string whole = tag(3, tagfix::frame(3, kHello, false) + std::string(33, '\0'));
    EXPECT_FALSE(load(cut, whole.substr(0, whole.size() - 5)));
    for (const ID3v2* t : {&huge, &cut}) {
        EXPECT_EQ(t->version(), 0) << "the header copy waits for the whole body";
        EXPECT_TRUE(t->frames().isEmpty());
    }
}

// The fields a frame should end up with; those not named stay empty or zero.
struct Want {
    int encoding = 0;
    int type = 0;
    std::wstring url = L"", description = L"", text = L"";
    std::string binary = "";
};

struct Row {
    const char* name;
    int major; // 4: sizes read seven bits a byte
    Frame frame;
    Want want;
    std::string after = ""; // bytes after the frame, inside the body
};

// One row a path through the frame reader, 2.2 ids where they share a path with 2.3 ones.
std::vector<Row> rows()
{
    const std::string x64(64, 'x');
    const std::string png = "\0image/png\0"s + raw({3, 0});
    return {
        {"AENC", 3, {"AENC", "owner\0"s + raw({1, 2, 3, 4})}, {.url = L"owner", .binary = raw({1, 2, 3, 4})}},
        {"APIC", 3, {"APIC", png + pic(100)}, {.type = 3, .url = L"image/png", .binary = pic(100)}},
        {"APIC data length smaller", 3, {"APIC", tagfix::be(5, 4) + png + pic(10), 0x0001}, {.type = 3, .url = L"image/png", .binary = pic(5)}},
        {"APIC data length larger", 3, {"APIC", tagfix::be(0x1000, 4) + png + pic(10), 0x0001}, {.type = 3, .url = L"image/png", .binary = pic(10)}},
        {"APIC data length cut short", 3, {"APIC", raw({0, 0, 1}), 0x0001}, {}},
        // 00 00 01 00 is 128 with seven bits a byte, 256 plainly.
        {"APIC data length in 2.4", 4, {"APIC", raw({0, 0, 1, 0}) + png + pic(200), 0x0001}, {.type = 3, .url = L"image/png", .binary = pic(128)}},
        {"other A", 3, {"ASPI", raw({0, 0, 0, 1, 2})}, {.binary = raw({0, 0, 0, 1, 2})}},
        {"COM", 2, {"COM", "\0engd\0c"s}, {.url = L"eng", .description = L"d", .text = L"c"}},
        {"CRA", 2, {"CRA", "own\0"s + raw({1, 2})}, {.url = L"own", .binary = raw({1, 2})}},
        {"other C", 3, {"CTOC", "toc\0"s + raw({3})}, {.binary = "toc\0"s + raw({3})}},
        {"GEO", 2, {"GEO", "\0a/b\0f\0d\0"s + raw({7})}, {.url = L"a/b", .description = L"d", .text = L"f", .binary = raw({7})}},
        {"IPL", 2, {"IPL", raw({3}) + "role\0name"s}, {.encoding = 3, .text = L"role"}},
        {"other I", 3, {"ITUN", raw({3}) + "abc"}, {.binary = raw({3}) + "abc"}},
        {"PIC", 2, {"PIC", "\0JPG"s + raw({3, 0}) + pic(10)}, {.type = 3, .url = L"JPG", .binary = pic(10)}},
        {"PIC format cut short", 2, {"PIC", "\0PN"s}, {.url = L"PN"}},
        {"PRIV", 3, {"PRIV", "owner\0"s + raw({1, 2, 3})}, {.url = L"owner", .binary = raw({1, 2, 3})}},
        {"other P", 3, {"PCNT", raw({0, 0, 0, 5})}, {.binary = raw({0, 0, 0, 5})}},
        {"TXX", 2, {"TXX", "\0k\0v"s}, {.description = L"k", .text = L"v"}},
        {"other T keeps the first value, trimmed; flags widened", 3, {"TIT2", "\0  Hi \t\0b"s, 0xFFFF}, {.text = L"Hi"}},
        {"UFI 64 bytes", 2, {"UFI", "a\0"s + x64}, {.url = L"a", .text = std::wstring(64, L'x'), .binary = x64}},
        {"UFID 65 bytes", 3, {"UFID", "a\0"s + x64 + "y"}, {.url = L"a", .binary = x64}},
        {"ULT", 2, {"ULT", "\0engd\0words"s}, {.url = L"eng", .description = L"d", .text = L"words"}},
        {"other U", 3, {"USER", "\0engterms"s}, {.url = L"eng", .text = L"terms"}},
        {"WXXX URL is Latin-1 whatever the encoding", 3, {"WXXX", raw({1, 0xFF, 0xFE, 'h', 0, 0, 0, 'u', 0xE9})},
         {.encoding = 1, .url = L"u\u00E9", .description = L"h"}},
        {"WXX", 2, {"WXX", "\0h\0u"s}, {.url = L"u", .description = L"h"}},
        {"other W", 3, {"WOAR", "a/b\0c"s}, {.url = L"a/b"}},
        {"other", 3, {"MCDI", raw({0, 1, 2, 3})}, {.binary = raw({0, 1, 2, 3})}},
        // Text readings.
        {"UTF-16 next string after the zero unit", 3, {"TXXX", raw({1, 0xFF, 0xFE, 0x41, 0, 0, 0, 0x42, 0})},
         {.encoding = 1, .description = L"A", .text = L"B"}},
        {"UTF-16 zeros across units end nothing", 3, {"TXXX", raw({1, 0xFF, 0xFE, 0x41, 0, 0, 0x42, 0, 0})},
         {.encoding = 1, .description = L"A\u4200"}},
        {"UTF-16 without terminator, odd length", 3, {"TXXX", raw({1, 0xFF, 0xFE, 'a', 0, 0})}, {.encoding = 1, .description = L"a"}},
        {"mark alone", 3, {"TXXX", raw({1, 0xFF, 0xFE, 0, 0, 0xFF, 0xFE, 'v', 0})}, {.encoding = 1, .text = L"v"}},
        {"FE FF alone in encoding 2", 3, {"TXXX", raw({2, 0xFE, 0xFF, 0, 0, 0, 'v'})}, {.encoding = 2, .text = L"v"}},
        {"encoding 7 reads as Latin-1", 3, {"TIT2", raw({7, 'c', 'a', 'f', 0xE9})}, {.encoding = 7, .text = L"caf\u00E9"}},
        {"invalid UTF-8, then the next string", 3, {"TXXX", raw({3, 0xFF, 'x', 0}) + "ok"}, {.encoding = 3, .text = L"ok"}},
        {"comment of three bytes", 3, {"COMM", "\0eng"s}, {.description = L"eng"}},
        {"no terminator: later readings find nothing", 3, {"TXXX", "\0abc"s}, {.description = L"abc"}, "TIT2\0"s},
    };
}

TEST_F(ID3v2Tag, EachFrameIdKeepsItsFieldsAndReadsNothingPastTheBodysEnd)
{
    for (const Row& r : rows()) {
        SCOPED_TRACE(r.name);
        const std::string bytes = tagfix::frame(r.major, r.frame, r.major == 4);
        ID3v2Frame f(owner(r.major));
        EXPECT_EQ(readAtEnd(f, bytes + r.after), bytes.size());
        EXPECT_EQ(f.id().str(), std::wstring(r.frame.id.begin(), r.frame.id.end()));
        EXPECT_EQ(std::tuple(f.size(), f.flags(), f.encoding(), f.type()),
                  std::tuple(static_cast<uint32_t>(r.frame.body.size()), static_cast<int16_t>(r.frame.flags), r.want.encoding, r.want.type));
        EXPECT_EQ(std::tuple(f.url().str(), f.description().str(), f.text().str()), std::tuple(r.want.url, r.want.description, r.want.text));
        EXPECT_EQ(std::string(f.binary().data(), f.binary().length()), r.want.binary);
        // Cut short, the size field still claims the whole body; only the bytes up to _end may be read.
        const size_t header = r.major == 2 ? 6 : 10;
        for (size_t cut = header + 1; cut < bytes.size(); ++cut) {
            ID3v2Frame g(owner(r.major));
            EXPECT_EQ(readAtEnd(g, bytes.substr(0, cut)), bytes.size()) << "cut at " << cut;
            EXPECT_LE(g.binary().length(), cut - header) << "cut at " << cut;
        }
    }
}

TEST_F(ID3v2Tag, LanguageCodeIsTakenOnlyWhenValid)
{
    const struct { const char* code; bool taken; } cases[] = {{"eng", true}, {"XXX", true}, {"ENG", false}, {"en1", false}, {"XXx", false}};
    for (const auto& c : cases) {
        const std::wstring code(c.code, c.code + 3);
        for (const char* id : {"COMM", "USLT", "USER"}) {
            SCOPED_TRACE(std::string(id) + " " + c.code);
            ID3v2Frame f(v3_);
            readAtEnd(f, tagfix::frame(3, {id, "\0"s + c.code + "d\0t"s}, false));
            EXPECT_EQ(f.url().str(), c.taken ? code : L"");
            // Not taken, the three bytes begin the next reading.
            EXPECT_EQ(std::string(id) == "USER" ? f.text().str() : f.description().str(), c.taken ? L"d" : code + L"d");
        }
    }
}

TEST_F(ID3v2Tag, FrameToStringWidensSignedFields)
{
    struct Case { Frame frame; std::wstring text; } cases[] = {
        {{"TIT2", "\xFFHi"s, 0x8000}, L"TIT2 size[3] flags[ffff8000] encoding[-1] type[0] text[Hi]"},
        {{"PRIV", "owner\0"s + std::string(100, 'z')},
         L"PRIV size[106] flags[0] encoding[0] type[0] url[owner] binary[100][" + std::wstring(40, L'z') + L"]"},
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
