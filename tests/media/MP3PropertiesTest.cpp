// The tag properties of MP3 files, read by the program's readers, against
// TagLib's PropertyMap of the same files: files with one tag each, built for
// every way of naming a value, and the tagged samples.
#define ZEL_SOURCE "tests/media/MP3PropertiesTest"
#include <gtest/gtest.h>
#include <taglib/apetag.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/tpropertymap.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <ostream>
#include <string>
#include <vector>

#include "media/MP3Properties.h"
#include "media/MainArguments.h"
#include "media/TagReader.h"
#include "support/ReportCapture.h"
#include "support/TagBuilder.h"
#include "zel/Exception.h"
#include "zel/FileName.h"
#include "zel/Utf8.h"
#include "zel/Writer.h"

namespace ZELd {
void PrintTo(const TagProperty& p, std::ostream* os) { *os << toUtf8(p.source.str() + L" " + p.key.str() + L"=" + p.value.str()); }
} // namespace ZELd

using namespace ZELd;
using namespace std::string_literals;
using namespace testsupport;

namespace {

const std::string kAudio = readFile(dataFile("sine-1s.mp3"));

// The bytes as a file in memory, /proc/self/fd/N, for both readers.
std::string memoryFile(const std::string& bytes)
{
    static const int fd = ::memfd_create("mp3", MFD_CLOEXEC);
    if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) std::abort();
    return "/proc/self/fd/" + std::to_string(fd);
}

// A file's tags as the program reads them (TagReader::readTag), as far as
// they could be read.
TagProperties ours(const std::string& file)
{
    struct Program {
        FileWriter devNull{::open("/dev/null", O_WRONLY | O_CLOEXEC), nullptr};
        MainArguments arguments{devNull, devNull};
        TagReader reader{arguments};
    };
    static Program program;
    const String path = fromNativePath(file.c_str()), dir = L"/proc/self/fd/", name = path.substring(dir.length());
    FileInfo info(dir, name);
    ReportCapture traces; // of damaged tags
    try {
        program.reader.readTag(path, info);
    } catch (Exception* e) {
        e->destroy();
    }
    return mp3Properties(info.id3v2, info.ape, info.id3v1);
}

// TagLib's: the PropertyMap of each tag, in the same order, without its empty values.
TagProperties taglibs(const std::string& file)
{
    TagProperties out;
    auto wide = [](const TagLib::String& s) { // as characters, not TagLib's UTF-16 units
        const std::string utf8 = s.to8Bit(true);
        return String(decodeUtf8Escaped(utf8.data(), utf8.size()));
    };
    auto append = [&](const wchar_t* source, const auto* tag) {
        for (const auto& [key, values] : tag->properties())
            for (const TagLib::String& value : values)
                if (!value.isEmpty()) out.push_back({source, wide(key), wide(value)});
    };
    TagLib::MPEG::File f(file.c_str());
    if (f.hasID3v2Tag()) append(L"ID3v2", f.ID3v2Tag());
    if (f.hasAPETag()) append(L"APE", f.APETag());
    if (f.hasID3v1Tag()) append(L"ID3v1", f.ID3v1Tag());
    return out;
}

void expectAsTagLib(const std::string& name, const std::string& bytes)
{
    const std::string file = memoryFile(bytes);
    const TagProperties theirs = taglibs(file);
    EXPECT_FALSE(theirs.empty()) << name;
    EXPECT_EQ(ours(file), theirs) << name;
}

Frame text(const std::string& id, const std::string& value, char encoding = 0) { return {id, textBody(value, encoding)}; }
Frame raw(const std::string& id, const std::string& body) { return {id, body}; }
ApeItem item(const std::string& key, const std::string& value, uint32_t flags = 0) { return {key, value, flags}; }

struct Case {
    std::string name, bytes;
};

// Left out, as the program reads them otherwise: blanks at the ends of values (trimmed), unsynchronised or
// compressed frames (read as they lie), a frame of size 0 (where TagLib stops reading the tag).
std::vector<Case> id3v2Cases()
{
    const std::string bom = "\xFF\xFE", utf16 = bom + "A\0r\0t\0\0\0"s + bom + "D\0u\0o\0"s, mb = "b1a9c0e9-d987-4042-ae91-78d6a3267d69";
    return {
        {"v24-text", id3v2(4, {text("TIT2", "Titel \xC3\xA9", 3), text("TPE1", "A\0B\0\0C"s), text("TPE1", utf16, 1), text("TPE2", "Band"),
                               text("TALB", "Album"), text("TRCK", "3/12"), text("TPOS", "1/2"), text("TCOM", "Bach"), text("TBPM", "120"),
                               text("TDRC", "2004-05-06T07:08"), text("TDOR", "1999"), text("TSOP", "Sort"), text("TCMP", "1"),
                               text("TSSE", "enc"), text("TZZZ", "unnamed")})},
        {"v24-genres", id3v2(4, {text("TCON", "(17)"), text("TCON", "17\0Jazz"s), text("TCON", "(17)Rock"), text("TCON", "(17)Rocks"),
                                 text("TCON", "(17)(18)"), text("TCON", "(RX)(CR)"), text("TCON", "(abc)Pop"), text("TCON", "300")})},
        // The last two keys, U+FE56 and U+1D11E, come in the order of their UTF-16 units.
        {"v24-user-text",
         id3v2(4, {raw("TXXX", "\0MusicBrainz Album Id\0"s + mb), raw("TXXX", "\0MusicBrainz Artist Id\0"s + mb),
                   raw("TXXX", "\0replaygain_track_gain\0-6.50 dB"s), raw("TXXX", "\3ACOUSTID ID\0id\0"s), raw("TXXX", "\0Artists\0A\0B"s),
                   raw("TXXX", "\0\0no description"s), raw("TXXX", "\3\xEF\xB9\x96\0bmp"s), raw("TXXX", "\3\xF0\x9D\x84\x9E\0astral"s)})},
        {"v24-described",
         id3v2(4, {raw("COMM", "\0eng\0plain"s), raw("COMM", "\0engNotes\0noted"s), raw("COMM", "\0engComment\0as comment"s),
                   raw("USLT", "\0eng\0la la"s), raw("USLT", "\0engVerse\0words"s), raw("WXXX", "\0\0http://a.example/"s),
                   raw("WXXX", "\0Home\0http://b.example/"s), raw("WOAR", "http://artist.example/"), raw("WCOP", "http://c.example/"),
                   raw("WPUB", "http://p.example/"), raw("UFID", "http://musicbrainz.org\0"s + mb), raw("UFID", "other\0id"s)})},
        {"v24-people", id3v2(4, {text("TIPL", "PRODUCER\0P1,P2\0MIX\0M\0DJ-MIX\0D"s), text("TIPL", "FOO\0bar"s), text("TIPL", "ENGINEER"),
                                 text("TMCL", "guitar\0Jimi\0bass\0Noel,Paul"s), text("GRP1", "Group", 3), text("MVNM", "Movement"),
                                 text("MVIN", "2/4")})},
        {"v24-old-dates", id3v2(4, {text("TYER", "2001"), text("TDAT", "0105"), text("TRDC", "2002"), text("TORY", "1980")})},
        {"v23-joined-date", id3v2(3, {text("TYER", "2003"), text("TDAT", "0105"), text("TIME", "1230"), text("TORY", "1980")})},
        {"v23-date-not-joined", id3v2(3, {text("TYER", "2003"), text("TDAT", "0105"), text("TDAT", "0106")})},
        {"v23-frames",
         id3v2(3, {text("TIT2", utf16, 1), text("TCON", "(13)"), text("IPLS", "ARRANGER\0Arr"s), text("TRDA", "x"),
                   raw("COMM", "\1deu" + bom + "N\0\0\0"s + bom + "t\0"s), raw("TXXX", "\0MusicBrainz Release Group Id\0"s + mb)})},
        {"v22-frames", id3v2(2, {text("TT2", "Two"), text("TP1", "Artist"), text("TAL", "Album"), text("TRK", "4"), text("TYE", "1998"),
                                 text("TCO", "(13)Pop"), text("TOT", "Old"), text("TXT", "Writer"), text("IPL", "PRODUCER\0Prod"s),
                                 raw("COM", "\0engd\0comment"s), raw("ULT", "\0eng\0lyrics"s), raw("TXX", "\0MusicBrainz Work Id\0"s + mb),
                                 raw("UFI", "http://musicbrainz.org\0"s + mb), raw("WXX", "\0\0http://x.example/"s),
                                 raw("WAR", "http://y.example/"), text("GP1", "Grp"), text("TDA", "0101"), text("TIM", "1200")})},
    };
}

std::vector<Case> otherCases()
{
    return {
        {"ape2",
         kAudio + ape(2000,
                      {item("Title", "Ape title"), item("Year", "2005"), item("Date", "2006"), item("Track", "7"), item("Disc", "2"),
                       item("Album Artist", "AA"), item("MIXARTIST", "Remix"), item("MUSICBRAINZ_ALBUMSTATUS", "Official"),
                       item("Artist", "A\0\0B\0"s), item("REPLAYGAIN_TRACK_GAIN", "-1 dB"), item("genre", "first"), item("GENRE", "second"),
                       item("Cover Art (Front)", "c.png\0PNG"s, 2), item("Related", "http://x/", 4), item("ID3", "refused"),
                       item("X", "too short")},
                      true)},
        {"ape1-before-v1", kAudio + ape(1000, {item("Title", "One"), item("Year", "1999")}, false) + id3v1("V1")},
        {"v1-track-genre", kAudio + id3v1("Title", "Artist", "Album", "1999", "note", 7, 17)},
        {"v1-no-track", kAudio + id3v1("T", "", "", "", "thirty characters of a comment", -1, 255)},
        {"v1-high-bytes", kAudio + id3v1("T", "", "", "2x", "", 200, 191)},
        {"v1-unnamed-genre", kAudio + id3v1("T", "", "", "0", "", 0, 192)},
    };
}

TEST(MP3Properties, BuiltTagsAgreeWithTagLib)
{
    for (const Case& c : id3v2Cases()) expectAsTagLib(c.name, c.bytes + kAudio);
    for (const Case& c : otherCases()) expectAsTagLib(c.name, c.bytes);
}

TEST(MP3Properties, SamplesAgreeWithTagLib)
{
    for (const Sample& s : samples())
        if (s.name != "built-ape2first-v1") expectAsTagLib(s.name, s.bytes); // TagLib reads no APE tag at the start of an MP3 file
}

// Cut or overwritten anywhere, the tags built above give only named,
// non-empty values.
TEST(MP3Properties, DamagedTagsGiveNoEmptyProperty)
{
    for (const Case& c : id3v2Cases())
        for (size_t at = 0; at < c.bytes.size(); ++at) {
            std::string copy = c.bytes;
            copy.replace(at, 4, "\x7F\xFF\0\0"s);
            for (const std::string& bytes : {copy, c.bytes.substr(0, at)})
                for (const TagProperty& p : ours(memoryFile(bytes)))
                    ASSERT_FALSE(p.key.isEmpty() || p.value.isEmpty()) << c.name << " at " << at;
        }
}

} // namespace
