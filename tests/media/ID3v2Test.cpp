// The ID3v2 tag reader: header test, frame-size probe, extended header, frame walk and traces.
#define ZEL_SOURCE "tests/media/ID3v2Test"
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "media/ID3v2.h"
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

// A tag header with the given major version and flags in front of a body taken as it is.
std::string tag(int major, const std::string& body, int flags = 0)
{
    const std::string size = tagfix::syncsafe(static_cast<uint32_t>(body.size()), 4);
    return "ID3"s + static_cast<char>(major) + '\0' + static_cast<char>(flags) + size + body;
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

// The debug report (traces and assertions) captured in memory while this object lives.
class ReportCapture {
public:
    ReportCapture() : fd_(::memfd_create("id3v2-report", MFD_CLOEXEC)), writer_(fd_, nullptr) { ZELDebugSetGlobalReport(&writer_); }
    ~ReportCapture()
    {
        ZELDebugSetGlobalReport(nullptr);
        writer_.flush();
        ::close(fd_);
    }
    ReportCapture(const ReportCapture&) = delete;
    ReportCapture& operator=(const ReportCapture&) = delete;

    std::string text()
    {
        writer_.flush();
        std::string out(static_cast<size_t>(::lseek(fd_, 0, SEEK_END)), '\0');
        const ssize_t got = ::pread(fd_, out.data(), out.size(), 0);
        out.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return out;
    }

private:
    int fd_;
    FileWriter writer_;
};

class ID3v2Tag : public ::testing::Test {
protected:
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
};

const Frame kHello{"TIT2", textBody("Hello\0"s)}; // body of 7 bytes, 17 with its header
const Frame kWorld{"TPE1", textBody("World")};
const Frame k200{"TIT2", textBody(std::string(199, 'a'))}; // body of 200 bytes

TEST_F(ID3v2Tag, HeaderBytesDecideWhetherATagIsRead)
{
    const std::string v22 = tagfix::id3v2(2, {{"TT2", textBody("Hello")}});
    const std::string v23 = tagfix::id3v2(3, {kHello});
    struct Case { const char* name; std::string bytes; bool ok; int version; const wchar_t* ids; } cases[] = {
        {"2.2", v22, true, 2, L"TT2"},
        {"2.3", v23, true, 3, L"TIT2"},
        {"2.4", tagfix::id3v2(4, {kHello}), true, 4, L"TIT2"},
        // Versions the test lets through walk with the 3-byte id geometry.
        {"major 0", patched(v22, 3, 0), true, 0, L"TT2"},
        {"major 1", patched(v22, 3, 1), true, 1, L"TT2"},
        {"major 0x80", patched(v22, 3, 0x80), true, -128, L"TT2"},
        {"major 0xFF", patched(v22, 3, 0xFF), true, -1, L"TT2"},
        {"major 5", patched(v23, 3, 5), false, 0, L""},
        {"major 0x7F", patched(v23, 3, 0x7F), false, 0, L""},
        {"ID4", patched(v23, 2, '4'), false, 0, L""},
        {"lower-case id3", patched(v23, 0, 'i'), false, 0, L""},
        // The size reading ignores top bits, so only the test can refuse these.
        {"size byte 6 top bit", patched(v23, 6, 0x80), false, 0, L""},
        {"size byte 7 top bit", patched(v23, 7, 0xFF), false, 0, L""},
        {"size byte 8 top bit", patched(v23, 8, 0x80), false, 0, L""},
        {"size byte 9 top bit", patched(v23, 9, v23[9] | 0x80), false, 0, L""},
        {"nine bytes", v23.substr(0, 9), false, 0, L""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ID3v2 t;
        EXPECT_EQ(load(t, c.bytes), c.ok);
        EXPECT_EQ(t.version(), c.version);
        EXPECT_EQ(ids(t), c.ids);
        if (c.ok) {
            ASSERT_FALSE(t.frames().isEmpty());
            EXPECT_EQ(t.size(), c.bytes.size() - 10);
            EXPECT_EQ(t.fsbits(), 8);
            EXPECT_EQ(t.ID3().str(), L"ID3");
            EXPECT_EQ(t.frames()[0]->text().str(), L"Hello");
        } else {
            EXPECT_EQ(t.size(), 0u) << "a refused header leaves the object as it was";
            EXPECT_TRUE(t.ID3().isEmpty());
        }
    }
}

TEST_F(ID3v2Tag, ToStringShowsHeaderBytesWidenedWithTheirSign)
{
    const std::string v257 = tagfix::id3v2(3, {kHello}, 240);
    ASSERT_EQ(v257.substr(6, 4), raw({0, 0, 2, 1}));
    struct Case { std::string bytes; bool ok; const wchar_t* text; } cases[] = {
        {v257, true, L"ID3 version[3] revision[0] flags[0] size[257] fsbits[8]"},
        {tagfix::id3v2(3, {kHello}, 0, 0x80), true, L"ID3 version[3] revision[0] flags[ffffff80] size[17] fsbits[8]"},
        {patched(tagfix::id3v2(4, {k200}, 100), 4, 0x90), true, L"ID3 version[4] revision[-112] flags[0] size[310] fsbits[7]"},
        {patched(tagfix::id3v2(2, {{"TT2", textBody("x")}}), 3, 0xFF), true, L"ID3 version[-1] revision[0] flags[0] size[8] fsbits[8]"},
        {tagfix::id3v2(3, {{"TiT2", textBody("x")}}), false, L"ID3 version[3] revision[0] flags[0] size[12] fsbits[0]"},
    };
    for (const Case& c : cases) {
        ReportCapture quiet;
        ID3v2 t;
        EXPECT_EQ(load(t, c.bytes), c.ok) << c.bytes.size();
        EXPECT_EQ(t.toString().str(), c.text);
    }
}

TEST_F(ID3v2Tag, GivenHeaderAndFilePositionDoNotMatter)
{
    const std::string bytes = tagfix::id3v2(3, {kHello, kWorld}, 30) + std::string(64, '\xFF');
    ID3v2 given;
    ASSERT_TRUE(load(given, bytes, true));
    EXPECT_EQ(ids(given), L"TIT2,TPE1");

    // As the tag reader does: 32 bytes read first, then the tag from offset 10.
    File f(fromNativePath(path_.c_str()), 1, 0);
    char first[32];
    ASSERT_EQ(f.read(first, sizeof first), sizeof first);
    ID3v2 afterRead;
    EXPECT_TRUE(afterRead.read(f, first));
    ASSERT_EQ(ids(afterRead), L"TIT2,TPE1");
    EXPECT_EQ(afterRead.frames()[1]->text().str(), L"World");

    f.seek(7, 0);
    ID3v2 own;
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
    std::string runsPast = "TIT2" + tagfix::be(1000, 4) + raw({0, 0}) + textBody("Hello");
    struct Case { const char* name; std::string bytes; bool ok; int fsbits; const wchar_t* ids; uint32_t firstSize; } cases[] = {
        {"2.4 syncsafe 200 then 100 padding", tagfix::id3v2(4, {k200}, 100), true, 7, L"TIT2", 200},
        {"2.4 syncsafe 200 then 1000 padding", tagfix::id3v2(4, {k200}, 1000), true, 8, L"TIT2", 328},
        {"2.3 plain 200", tagfix::id3v2(3, {k200}), true, 8, L"TIT2", 200},
        {"2.3 written syncsafe", tagfix::id3v2(3, {k200, kHello}, 50, 0, 1), true, 7, L"TIT2,TIT2", 200},
        {"sizes below 128 agree", tagfix::id3v2(4, {kHello, kWorld}, 20), true, 8, L"TIT2,TPE1", 7},
        {"chain ends at the body's end", tagfix::id3v2(3, {kHello, kWorld}), true, 8, L"TIT2,TPE1", 7},
        {"2.2 chain", tagfix::id3v2(2, {{"TT2", textBody("a")}, {"TP1", textBody("b")}}, 10), true, 8, L"TT2,TP1", 2},
        {"frames after the padding are ignored",
         tag(3, tagfix::frame(3, kHello, false) + raw({0, 0, 0, 0}) + tagfix::frame(3, kWorld, false)), true, 8, L"TIT2", 7},
        {"empty body", tagfix::id3v2(3, {}), true, 8, L"", 0},
        {"all padding", tagfix::id3v2(3, {}, 64), true, 8, L"", 0},
        {"last frame empty, header ends at the body's end", tagfix::id3v2(3, {kHello, {"TPE1", ""}}), false, 0, L"", 0},
        {"lower-case id", tagfix::id3v2(3, {kHello, {"TiT2", "x"}}), false, 0, L"", 0},
        {"space in id", tagfix::id3v2(4, {{"TIT ", textBody("x")}}, 10), false, 0, L"", 0},
        {"frame runs past the body", tag(3, runsPast), false, 0, L"", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ReportCapture report;
        ID3v2 t;
        EXPECT_EQ(load(t, c.bytes), c.ok);
        EXPECT_EQ(t.fsbits(), c.fsbits);
        EXPECT_EQ(ids(t), c.ids);
        EXPECT_EQ(t.version(), c.bytes[3]) << "the header copy is made even when the frames are refused";
        if (!t.frames().isEmpty()) {
            EXPECT_EQ(t.frames()[0]->size(), c.firstSize);
        }
        EXPECT_EQ(report.text().find("Invalid Frames") != std::string::npos, !c.ok) << report.text();
    }
    // The frame read with the 7-bit reading keeps its 199 letters.
    ID3v2 t;
    ASSERT_TRUE(load(t, tagfix::id3v2(4, {k200}, 100)));
    ASSERT_EQ(ids(t), L"TIT2");
    EXPECT_EQ(t.frames()[0]->text().str(), std::wstring(199, L'a'));
}

TEST_F(ID3v2Tag, InvalidFramesAreTracedWithBothProbesOfTheChain)
{
    const std::string hello = tagfix::frame(3, kHello, false);
    struct Case {
        const char* name;
        std::string body;
        std::string probe; // the traces of one probe; both readings give the same here
        std::string probe7 = "";
    } cases[] = {
        {"lower-case id", hello + tagfix::frame(3, {"TiT2", "x"}, false), "[TIT2][7]\nfalse\nfalse [11][1C][54]\n"},
        {"negative id byte", hello + tagfix::frame(3, {"\xFFIT2", "x"}, false), "[TIT2][7]\nfalse\nfalse [11][1C][ffffffff]\n"},
        {"empty last frame", hello + tagfix::frame(3, {"TPE1", ""}, false), "[TIT2][7]\nfalse [11][1B][54]\n"},
        // 00 00 03 E8 is 1000 plainly and 488 with seven bits a byte.
        {"size past the end", "TIT2" + tagfix::be(1000, 4) + raw({0, 0}) + textBody("Hello\0\0\0\0"s), "[TIT2][1000]\nfalse [3F2][14][0]\n",
         "[TIT2][488]\nfalse [1F2][14][0]\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ID3v2 t;
        ReportCapture report;
        EXPECT_FALSE(load(t, tag(3, c.body, 0x20)));
        EXPECT_EQ(report.text(), "ID3v2 Invalid Frames [" + path_ + "]\n" + c.probe + (c.probe7.empty() ? c.probe : c.probe7));
        EXPECT_EQ(t.version(), 3);
        EXPECT_EQ(t.flags(), 0x20);
        EXPECT_EQ(t.size(), c.body.size());
        EXPECT_EQ(t.fsbits(), 0);
        EXPECT_TRUE(t.frames().isEmpty());
    }
}

TEST_F(ID3v2Tag, WalkStopsAtAnIdThatDoesNotBeginWithALetter)
{
    // Digits pass the probe but cannot begin a frame id in the walk.
    const std::string body = tagfix::frame(3, kHello, false) + tagfix::frame(3, {"1ABC", "zz"}, false) + tagfix::frame(3, kWorld, false);
    ReportCapture report;
    ID3v2 t;
    EXPECT_TRUE(load(t, tag(3, body + std::string(8, '\0'))));
    EXPECT_EQ(t.fsbits(), 8);
    EXPECT_EQ(ids(t), L"TIT2") << "the frames before the stop stay";
    EXPECT_EQ(report.text(), "ID3v2 Frame Read Failed [" + path_ + "]\n");
}

TEST_F(ID3v2Tag, ExtendedHeaderLengthCountsFromItsOwnStart)
{
    const std::string frames3 = tagfix::frame(3, kHello, false);
    const std::string frames4 = tagfix::frame(4, kHello, true);
    struct Case { const char* name; int major; std::string body; const wchar_t* ids; const char* trace; } cases[] = {
        {"2.3, length 6", 3, raw({0, 0, 0, 6, 2, 0}) + frames3, L"TIT2", "Number of flag bytes [2]\n"},
        // A 2.3 writer's 10 bytes: the walk starts at the padding-size field.
        {"2.3, length 6 of 10 bytes", 3, raw({0, 0, 0, 6, 0, 0, 0, 0, 0, 0}) + frames3, L"", "Number of flag bytes [0]\n"},
        {"2.4, length 6", 4, raw({0, 0, 0, 6, 0x81, 0}) + frames4, L"TIT2", "Number of flag bytes [-127]\n"},
        {"2.4, length 12", 4, raw({0, 0, 0, 12, 1, 0, 9, 9, 9, 9, 9, 9}) + frames4 + std::string(5, '\0'), L"TIT2",
         "Number of flag bytes [1]\n"},
        {"length beyond the body", 3, raw({0x7F, 0x7F, 0x7F, 0x7F, 1, 0}) + frames3, L"", "Number of flag bytes [1]\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ReportCapture report;
        ID3v2 t;
        EXPECT_TRUE(load(t, tag(c.major, c.body, 0x40)));
        EXPECT_EQ(t.fsbits(), 8);
        EXPECT_EQ(ids(t), c.ids);
        EXPECT_EQ(report.text(), c.trace);
    }
}

TEST_F(ID3v2Tag, ExtendedHeaderFlagOnABodyTooShortIsReportedAndNothingBeyondIsRead)
{
    for (const std::string& body : {""s, raw({0, 0, 0}), "TIT2\x7F"s}) {
        SCOPED_TRACE(body.size());
        ReportCapture report;
        ID3v2 t;
        load(t, tag(3, body, 0x40));
        EXPECT_NE(report.text().find("Assertion failed [_begin + 6 <= _end] at media/ID3v2("), std::string::npos) << report.text();
        EXPECT_TRUE(t.frames().isEmpty());
    }
}

TEST_F(ID3v2Tag, BodyTheFileCannotHoldIsRefused)
{
    const std::string huge = "ID3\x03\0\0"s + raw({0x7F, 0x7F, 0x7F, 0x7F}) + tagfix::frame(3, kHello, false);
    ID3v2 t;
    const size_t before = ZELDebugMemory().ownBytes;
    EXPECT_FALSE(load(t, huge));
    EXPECT_LT(ZELDebugMemory().ownBytes, before + 0x0FFFFFFF) << "no block of the claimed size is held";
    EXPECT_EQ(t.version(), 0);
    EXPECT_TRUE(t.frames().isEmpty());

    // A size within the file's length but past its end: the body comes short.
    const std::string body = tagfix::frame(3, kHello, false) + std::string(33, '\0');
    std::string shortBody = tag(3, body);
    shortBody.resize(shortBody.size() - 5);
    ID3v2 s;
    EXPECT_FALSE(load(s, shortBody));
    EXPECT_EQ(s.version(), 0) << "the header copy waits for the whole body";
    EXPECT_TRUE(s.frames().isEmpty());
}

TEST_F(ID3v2Tag, TextRunningToTheVeryEndOfTheBodyIsReadToThatEnd)
{
    // The body buffer is exactly the tag size: a read past it is caught by the sanitizer.
    std::string unterminated = tagfix::frame(3, kHello, false);
    for (const Frame& f : {Frame{"TXXX", textBody("key")}, Frame{"COMM", textBody("eng")}, Frame{"TPE1", textBody("end")}})
        unterminated += tagfix::frame(3, f, false);
    ID3v2 t;
    ASSERT_TRUE(load(t, tag(3, unterminated)));
    ASSERT_EQ(ids(t), L"TIT2,TXXX,COMM,TPE1");
    EXPECT_EQ(t.frames()[1]->description().str(), L"key");
    EXPECT_TRUE(t.frames()[1]->text().isEmpty());
    EXPECT_EQ(t.frames()[2]->description().str(), L"eng") << "three bytes are too few for a language code";
    EXPECT_EQ(t.frames()[3]->text().str(), L"end");
}

} // namespace
