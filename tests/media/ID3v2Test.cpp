// The ID3v2 reader: which header bytes make a tag, how frame sizes are read
// (frames of 128 bytes and more included), the extended header, the walk and
// its traces, and what each kind of frame keeps of its body.
#define ZEL_SOURCE "tests/media/ID3v2Test"
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "media/ID3v2.h"
#include "media/ID3v2FrameKinds.h"
#include "support/ReportCapture.h"
#include "support/TagBuilder.h"
#include "zel/File.h"
#include "zel/FileName.h"

using namespace ZELd;
using namespace std::string_literals;
using namespace testsupport;

namespace {

std::string patched(std::string s, size_t at, int value) { return s.replace(at, 1, 1, static_cast<char>(value)); }
std::wstring ids(const ID3v2& t)
{
    std::wstring out;
    for (const ID3v2Frame* f : t.frames()) out += (out.empty() ? L"" : L",") + f->id().str();
    return out;
}

const Frame kHello{"TIT2", textBody("Hello\0"s)}, kWorld{"TPE1", textBody("World")}, k200{"TIT2", textBody(std::string(199, 'a'))};
const TempDir kDir;
const std::string kPath = kDir / "tag.mp3";

// Reads the tag of a file holding the bytes: from the file alone, or with its
// first 32 bytes read before, as the tag reader does.
bool load(ID3v2& t, const std::string& bytes, bool given = false)
{
    writeFile(kPath, bytes);
    File f(fromNativePath(kPath.c_str()), 1, 0);
    char first[32] = {};
    return given ? (f.read(first, 32), t.read(f, first)) : t.read(f, nullptr);
}

TEST(ID3v2, HeaderBytesDecideWhetherATagIsRead)
{
    const std::string v22 = id3v2(2, {{"TT2", textBody("Hello")}}), v23 = id3v2(3, {kHello});
    const wchar_t* refused = L" version[0] revision[0] flags[0] size[0] fsbits[0]";
    const std::tuple<std::string, const wchar_t*, const wchar_t*> cases[] = {
        // the bytes, the frames' ids, the header as shown
        {v22, L"TT2", L"ID3 version[2] revision[0] flags[0] size[12] fsbits[8]"},
        {id3v2(3, {kHello}, 240), L"TIT2", L"ID3 version[3] revision[0] flags[0] size[257] fsbits[8]"},
        {patched(id3v2(4, {kHello}, 0, 0x80), 4, 0x90), L"TIT2", L"ID3 version[4] revision[-112] flags[ffffff80] size[17] fsbits[8]"},
        {patched(v22, 3, 0), L"TT2", L"ID3 version[0] revision[0] flags[0] size[12] fsbits[8]"}, // let through: 3-byte ids
        {patched(v22, 3, 0xFF), L"TT2", L"ID3 version[-1] revision[0] flags[0] size[12] fsbits[8]"},
        {patched(v23, 3, 5), nullptr, refused},
        {patched(v23, 2, '4'), nullptr, refused},
        {v23.substr(0, 9), nullptr, refused},
        {patched(v23, 6, 0x80), nullptr, refused}, // sizes are seven bits a byte
        {patched(v23, 9, v23[9] | 0x80), nullptr, refused},
    };
    for (const auto& [bytes, frameIds, text] : cases)
        for (bool given : {false, true}) {
            ID3v2 t;
            EXPECT_EQ(load(t, bytes + std::string(given ? 64 : 0, '\xFF'), given), frameIds != nullptr) << text;
            EXPECT_EQ(t.toString().str(), text);
            EXPECT_EQ(ids(t), frameIds ? frameIds : L"");
            EXPECT_EQ(t.frames().isEmpty() ? L"" : t.frames()[0]->text().str(), frameIds ? L"Hello" : L"");
        }
    ID3v2 t;
    ASSERT_TRUE(load(t, id3v2(3, {kHello, kWorld})));
    EXPECT_FALSE(load(t, patched(v23, 3, 9)));
    EXPECT_EQ(std::tuple(t.version(), ids(t)), std::tuple(3, std::wstring(L"TIT2,TPE1"))) << "a refused header changes nothing";
    EXPECT_TRUE(load(t, v22));
    EXPECT_EQ(std::tuple(t.version(), ids(t)), std::tuple(2, std::wstring(L"TT2"))) << "a new tag replaces the frames";
}

TEST(ID3v2, FrameSizesTheWalkAndItsTraces)
{
    const std::string hello = frame(3, kHello, false), frames4 = frame(4, kHello, true);
    const std::wstring path(kPath.begin(), kPath.end()), invalid = L"ID3v2 Invalid Frames [" + path + L"]\n";
    // The bytes; 8 or 7 as the frame sizes were read, 0 when the tag was not, -1 when not even its header copy was kept;
    // the frames' ids, the size of the first, the report's first lines.
    const std::tuple<std::string, int, const wchar_t*, uint32_t, std::wstring> cases[] = {
        // Frames of 128 bytes and more: the two readings differ, and a plain size byte of 0x80 or more is no sign.
        {id3v2(4, {k200}, 100), 7, L"TIT2", 200, L""}, // 00 00 01 48: 200 seven bits a byte, 328 plainly
        {id3v2(4, {k200}, 1000), 8, L"TIT2", 328, L""},
        {id3v2(3, {k200}), 8, L"TIT2", 200, L""}, // 00 00 00 C8
        {id3v2(2, {{"TT2", k200.body}}, 10), 8, L"TT2", 200, L""},
        {id3v2(3, {kHello, kWorld}), 8, L"TIT2,TPE1", 7, L""},                            // ends at the body's end
        {id3v2Tag(3, hello + "\0\0\0\0"s + frame(3, kWorld, false)), 8, L"TIT2", 7, L""}, // after the padding: ignored
        {id3v2(3, {}), 8, L"", 0, L""},
        {id3v2(3, {}, 64), 8, L"", 0, L""},
        {id3v2(3, {kHello, {"TPE1", ""}}), 0, L"", 0, invalid + L"[TIT2][7]\nfalse [11][1B][54]\n[TIT2][7]\nfalse [11][1B][54]\n"},
        {id3v2Tag(3, hello + frame(3, {"\xFFIT2", "x"}, false)), 0, L"", 0,
         invalid + L"[TIT2][7]\nfalse\nfalse [11][1C][ffffffff]\n[TIT2][7]\nfalse\nfalse [11][1C][ffffffff]\n"},
        {id3v2Tag(3, "TIT2" + be(1000, 4) + "\0\0"s + textBody("Hello\0\0\0\0"s)), 0, L"", 0,
         invalid + L"[TIT2][1000]\nfalse [3F2][14][0]\n[TIT2][488]\nfalse [1F2][14][0]\n"},
        {id3v2Tag(3, hello + frame(3, {"1ABC", "zz"}, false) + frame(3, kWorld, false) + std::string(8, '\0')), 8, L"TIT2", 7,
         L"ID3v2 Frame Read Failed [" + path + L"]\n"}, // a digit passes the probe, not the walk
        // The extended header's length counts from its own start.
        {id3v2Tag(4, "\0\0\0\x06\x81\0"s + frames4, 0x40), 8, L"TIT2", 7, L"Number of flag bytes [-127]\n"},
        {id3v2Tag(4, "\0\0\0\x0C\x01\0\x09\x09\x09\x09\x09\x09"s + frames4 + std::string(5, '\0'), 0x40), 8, L"TIT2", 7,
         L"Number of flag bytes [1]\n"},
        // One that claims more than the body holds fails both readings; one that ends with the body leaves no frames.
        {id3v2Tag(4, "\x7F\x7F\x7F\x7F\x01\0"s + frames4, 0x40), 0, L"", 0,
         L"Number of flag bytes [1]\n" + invalid + L"false [FFFFFFF][17][0]\nfalse [FFFFFFF][17][0]\n"},
        {id3v2Tag(4, "\0\0\0\x07\x01\0"s, 0x40), 0, L"", 0,
         L"Number of flag bytes [1]\n" + invalid + L"false [7][6][0]\nfalse [7][6][0]\n"},
        {id3v2Tag(4, "\0\0\0\x06\x01\0"s, 0x40), 8, L"", 0, L"Number of flag bytes [1]\n"},
        {id3v2Tag(3, "TIT2\x7F"s, 0x40), 8, L"", 0, L"Assertion failed [_begin + 6 <= _end] at media/ID3v2("}, // too short to hold one
        {id3v2Tag(3, "", 0x40), 8, L"", 0, L"Assertion failed [_begin + 6 <= _end] at media/ID3v2("},
        {id3v2Tag(3, hello + std::string(33, '\0')).substr(0, 55), -1, L"", 0, L""}, // the body comes short: no header copy
    };
    for (const auto& [bytes, fsbits, frameIds, firstSize, trace] : cases) {
        ReportCapture report;
        ID3v2 t;
        EXPECT_EQ(load(t, bytes), fsbits > 0) << testing::PrintToString(trace);
        EXPECT_EQ(std::tuple(t.fsbits(), ids(t)), std::tuple(std::max(fsbits, 0), std::wstring(frameIds)));
        EXPECT_EQ(t.version(), fsbits < 0 ? 0 : bytes[3]) << "the header copy is made once the body is read";
        EXPECT_EQ(t.frames().isEmpty() ? 0u : t.frames()[0]->size(), firstSize);
        EXPECT_TRUE(firstSize < 200 || t.frames()[0]->text().str() == std::wstring(199, L'a'))
            << "a frame of 128 bytes or more reads whole";
        EXPECT_EQ(report.text.substr(0, trace.size()), trace);
        EXPECT_EQ(report.text.empty(), trace.empty()) << testing::PrintToString(report.text);
    }
}

struct Row {
    int major; // 4: sizes seven bits a byte
    Frame frame;
    int encoding, type;
    std::wstring url, description, text;
    std::string binary, after = ""; // after: bytes after the frame, inside the body
    std::wstring shown = L"";       // its toString(), when given
};

// One row a path through the frame reader: what each kind of frame keeps.
std::vector<Row> rows()
{
    const std::string x64(64, 'x'), z50(50, 'z'), png = "\0image/png\0\x03\0"s, pic(200, '\xA5');
    // Signed fields are shown widened with their sign; of binary data, the length and the first 40 bytes.
    const std::wstring apicShown = L"APIC size[22] flags[2] encoding[0] type[-128] url[image/png] description[cover] binary[4][DATA]",
                       privShown = L"PRIV size[56] flags[0] encoding[0] type[0] url[owner] binary[50][" + std::wstring(40, L'z') + L"]";
    return {
        {3, {"AENC", "owner\0\1\2"s}, 0, 0, L"owner", L"", L"", "\1\2"},
        {3, {"APIC", png + pic.substr(0, 100)}, 0, 3, L"image/png", L"", L"", pic.substr(0, 100)},
        // a data length indicator
        {3, {"APIC", be(5, 4) + png + pic.substr(0, 10), 1}, 0, 3, L"image/png", L"", L"", pic.substr(0, 5)},
        {3, {"APIC", be(0x1000, 4) + png + pic.substr(0, 10), 1}, 0, 3, L"image/png", L"", L"", pic.substr(0, 10)},
        {4, {"APIC", "\0\0\x01\0"s + png + pic, 1}, 0, 3, L"image/png", L"", L"", pic.substr(0, 128)}, // 128 seven bits a byte
        {3, {"APIC", "\0\0\x01"s, 1}, 0, 0, L"", L"", L"", ""},
        {3, {"ASPI", "\0\1\2"s}, 0, 0, L"", L"", L"", "\0\1\2"s},
        {2, {"COM", "\0engd\0c"s}, 0, 0, L"eng", L"d", L"c", ""},
        {2, {"CRA", "own\0\1\2"s}, 0, 0, L"own", L"", L"", "\1\2"},
        {3, {"CTOC", "toc\0\3"s}, 0, 0, L"", L"", L"", "toc\0\3"s},
        {2, {"GEO", "\0a/b\0f\0d\0\7"s}, 0, 0, L"a/b", L"d", L"f", "\7"},
        // the MIME type is Latin-1
        {3, {"GEOB", "\x01text/x\0\xFF\xFE"s + "f\0\0\0\xFF\xFE"s + "d\0\0\0payload"s}, 1, 0, L"text/x", L"d", L"f", "payload"},
        {2, {"IPL", "\3role\0name"s}, 3, 0, L"", L"", L"role", ""},
        {3, {"IPLS", "\0role\0name"s}, 0, 0, L"", L"", L"role", ""},
        {3, {"ITUN", "\3abc"}, 0, 0, L"", L"", L"", "\3abc"},
        {2, {"PIC", "\0JPG\3\0"s + pic.substr(0, 10)}, 0, 3, L"JPG", L"", L"", pic.substr(0, 10)},
        {2, {"PIC", "\0PN"s}, 0, 0, L"PN", L"", L"", ""},
        {3, {"PRIV", "owner\0\1\2\3"s}, 0, 0, L"owner", L"", L"", "\1\2\3"},
        {3, {"PRIV", "owner\0"s + z50}, 0, 0, L"owner", L"", L"", z50, "", privShown},
        {3, {"TIT2", "\xFFHi"s, 0x8000}, -1, 0, L"", L"", L"Hi", "", "", L"TIT2 size[3] flags[ffff8000] encoding[-1] type[0] text[Hi]"},
        {3, {"APIC", "\0image/png\0\x80"s + "cover\0DATA"s, 2}, 0, -128, L"image/png", L"cover", L"", "DATA", "", apicShown},
        {3, {"PCNT", "\0\0\0\5"s}, 0, 0, L"", L"", L"", "\0\0\0\5"s},
        {2, {"TXX", "\0k\0v"s}, 0, 0, L"", L"k", L"v", ""},
        {3, {"TIT2", "\0  Hi \t\0b"s, 0xFFFF}, 0, 0, L"", L"", L"Hi", ""},
        {2, {"UFI", "a\0"s + x64}, 0, 0, L"a", L"", std::wstring(64, L'x'), x64},
        {3, {"UFID", "a\0"s + x64 + "y"}, 0, 0, L"a", L"", L"", x64},
        {2, {"ULT", "\0engd\0words"s}, 0, 0, L"eng", L"d", L"words", ""},
        {3, {"USER", "\0engterms"s}, 0, 0, L"eng", L"", L"terms", ""},
        {3, {"COMM", "\0ENGd\0t"s}, 0, 0, L"", L"ENGd", L"t", ""},
        {3, {"USLT", "\0XXXd\0t"s}, 0, 0, L"XXX", L"d", L"t", ""}, // language codes
        {3, {"USER", "\0en1t"s}, 0, 0, L"", L"", L"en1t", ""},
        {3, {"COMM", "\0eng"s}, 0, 0, L"", L"eng", L"", ""},
        {3, {"WXXX", "\x01\xFF\xFEh\0\0\0u\xE9"s}, 1, 0, L"u\u00E9", L"h", L"", ""}, // the URL is Latin-1
        {2, {"WXX", "\0h\0u"s}, 0, 0, L"u", L"h", L"", ""},
        {3, {"WOAR", "a/b\0c"s}, 0, 0, L"a/b", L"", L"", ""},
        {3, {"MCDI", "\0\1\2\3"s}, 0, 0, L"", L"", L"", "\0\1\2\3"s},
        {3, {"TXXX", "\x01\xFF\xFE"s + "A\0\0\0B\0"s}, 1, 0, L"", L"A", L"B", ""},      // UTF-16: a zero unit ends a string
        {3, {"TXXX", "\x01\xFF\xFE"s + "A\0\0B\0\0"s}, 1, 0, L"", L"A\u4200", L"", ""}, // zeros across units end nothing
        {3, {"TXXX", "\x01\xFF\xFE"s + "a\0\0"s}, 1, 0, L"", L"a", L"", ""},
        {3, {"TXXX", "\x01\xFF\xFE\0\0\xFF\xFEv\0"s}, 1, 0, L"", L"", L"v", ""}, // a mark alone is no text
        {3, {"TXXX", "\x02\xFE\xFF\0\0\0v"s}, 2, 0, L"", L"", L"v", ""},
        {3, {"TIT2", "\7caf\xE9"s}, 7, 0, L"", L"", L"caf\u00E9", ""},
        {3, {"TXXX", "\x03\xFFx\0"s + "ok"}, 3, 0, L"", L"", L"ok", ""}, // what cannot be decoded is empty
        {3, {"TXXX", "\0abc"s}, 0, 0, L"", L"abc", L"", "", "TIT2\0"s},  // without a terminator later readings find nothing
        {3, {"TXXA", "\0k\0v"s}, 0, 0, L"", L"k", L"v", ""},
        {3, {"IPLX", "\0role"s}, 0, 0, L"", L"", L"role", ""}, // TXX, IPL: the first three
        {3, {"T\xC9T2", "\0x"s}, 0, 0, L"", L"", L"x", ""},    // an id that is not ASCII is empty, and read by its first letter
    };
}

TEST(ID3v2, EveryKindOfFrameHasARow)
{
    const std::vector<Row> all = rows();
    auto hasRow = [&](std::string_view id) { return std::any_of(all.begin(), all.end(), [&](const Row& r) { return r.frame.id == id; }); };
    for (const FrameKind& kind : id3v2frames::kFrameKinds)
        for (std::string_view id : {kind.id22, kind.id23}) EXPECT_TRUE(id.empty() || hasRow(id)) << id;
    for (const FrameFamily& family : id3v2frames::kFrameFamilies)
        EXPECT_TRUE(std::any_of(all.begin(), all.end(), [&](const Row& r) { return r.frame.id[0] == family.firstLetter; }))
            << family.firstLetter;
}

TEST(ID3v2, EachFrameKeepsItsFieldsAndReadsNothingPastTheEnd)
{
    ID3v2 v2, v3, v4; // the owners: 2.2 and 2.3 with plain sizes, 2.4 with seven bits a byte
    ASSERT_TRUE(load(v2, id3v2(2, {{"TT2", textBody("x")}})));
    ASSERT_TRUE(load(v3, id3v2(3, {kHello})));
    ASSERT_TRUE(load(v4, id3v2(4, {k200}, 100)));
    for (const Row& r : rows()) {
        const ID3v2& owner = r.major == 2 ? v2 : r.major == 3 ? v3 : v4;
        const std::string bytes = frame(r.major, r.frame, r.major == 4);
        // Cut short, the frame claims what it claims.
        for (size_t cut = bytes.size() + r.after.size(); cut > (r.major == 2 ? 6u : 10u); --cut) {
            std::vector<char> block(bytes.begin(), bytes.end());
            block.insert(block.end(), r.after.begin(), r.after.end());
            block.resize(cut); // a read past the block's end shows in the sanitized build
            ID3v2Frame f(owner);
            ASSERT_EQ(f.read(block.data(), block.data() + block.size()), bytes.size()) << r.frame.id;
            EXPECT_LE(f.binary().length(), cut - (r.major == 2 ? 6 : 10)) << r.frame.id;
            if (cut < bytes.size()) continue;
            SCOPED_TRACE(testing::PrintToString(r.frame.id + " " + r.frame.body));
            EXPECT_EQ(std::tuple(f.id().str(), f.size(), f.flags(), f.encoding(), f.type()),
                      std::tuple(r.frame.id.find('\xC9') == std::string::npos ? std::wstring(r.frame.id.begin(), r.frame.id.end()) : L"",
                                 static_cast<uint32_t>(r.frame.body.size()), static_cast<int16_t>(r.frame.flags), r.encoding, r.type));
            EXPECT_EQ(std::tuple(f.url().str(), f.description().str(), f.text().str()), std::tuple(r.url, r.description, r.text));
            EXPECT_EQ(std::string(f.binary().data(), f.binary().length()), r.binary);
            EXPECT_EQ(r.shown.empty() ? L"" : f.toString().str(), r.shown);
        }
    }
}

} // namespace
