// Tags written by other programs (eyeD3, mutagen, id3lib, ffmpeg, made by
// data/make-tagged.sh; tagged/README.md lists the values): each frame holds
// exactly what the tool was asked to write, on one line of the report.
#define ZEL_SOURCE "tests/media/RealWorldTagsTest"
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "media/ID3v1.h"
#include "media/ID3v2.h"
#include "support/TagBuilder.h"
#include "zel/File.h"
#include "zel/FileName.h"
#include "zel/Utf8.h"

using namespace ZELd;

namespace {

struct Tagged {
    std::string file;                 // its name tells the version of its ID3v2 tag: -v23-, -v24-
    std::vector<std::string> frames;  // "ID|part|part": every frame the tool wrote, one of each id, whose toString() holds each part
    std::vector<std::string> v1 = {}; // parts of the ID3v1 toString(); none: no ID3v1 tag
};

const std::vector<Tagged>& files()
{
    const std::string pic = "binary[" + std::to_string(testsupport::readFile(testsupport::dataFile("tagged/cover.png")).size()) + "]";
    static const std::vector<Tagged> all = {
        {"eyed3-v23-utf16.mp3",
         {"TIT2|encoding[1]|text[Café]", "TPE1|encoding[1]|text[Ünïcödé]", "TALB|encoding[1]|text[日本語]",
          "COMM|encoding[1]|url[deu]|description[Notiz]|text[Größe zählt]",
          "USLT|encoding[1]|url[eng]|description[Strophe]|text[Première ligne — 日本語の歌詞]",
          "TXXX|encoding[1]|description[Stimmung]|text[fröhlich ☀ 🎵]",
          "WXXX|encoding[1]|description[Heimseite]|url[http://example.org/cafe]",
          "APIC|encoding[1]|type[3]|url[image/png]|description[Umschlag]|" + pic}},
        {"mutagen-v24-utf8.mp3",
         {"TIT2|encoding[3]|text[Ünïcödé]", "TPE1|encoding[3]|text[日本語]", "TALB|encoding[3]|text[Café]",
          "COMM|encoding[3]|url[fra]|description[Kommentar]|text[Ça va très bien]",
          "USLT|encoding[3]|url[deu]|description[Refrain]|text[Straße — 日本語]", "TXXX|encoding[3]|description[Stimmung]|text[ruhig ☕ 🎵]",
          "WXXX|encoding[3]|description[Heimseite]|url[http://example.org/v24]",
          // mutagen writes a picture description in UTF-16 whatever the other frames use.
          "APIC|encoding[1]|type[3]|url[image/png]|description[Hülle]|" + pic}},
        {"id3lib-v23-v1.mp3",
         {"TIT2|encoding[0]|text[Café Latin]", "TPE1|encoding[0]|text[Plain Artist]", "TALB|encoding[0]|text[Plain Album]",
          "TYER|text[1999]", "TRCK|text[7/12]", "TCON|text[(13)]", "COMM|encoding[0]|url[eng]|description[Notes]|text[Short comment]",
          "TXXX|encoding[0]|description[Mood]|text[calm]"},
         {"TAG Title[Café Latin] Artist[Plain Artist] Album[Plain Album] Year[1999] Comment[Short comment] Track[7] Genre[13]"}},
        // ffmpeg uses UTF-16 only for texts that are not ASCII, turns the comment
        // into a TXXX frame, and copies UTF-8 bytes as they are into ID3v1, so
        // only that tag's ASCII fields are checked.
        {"ffmpeg-v23-v1.mp3",
         {"TIT2|encoding[1]|text[Café]", "TPE1|encoding[1]|text[日本語]", "TALB|encoding[0]|text[Plain Album]", "TYER|text[2021]",
          "TRCK|text[3]", "TCON|text[Pop]", "TXXX|encoding[0]|description[comment]|text[ffmpeg comment]"},
         {"TAG Title[", "Album[Plain Album] Year[2021] Comment[ffmpeg comment] Track[3] Genre[13]"}},
        {"eyed3-v24-utf16be-v1.mp3",
         {"TIT2|encoding[2]|text[Größe]", "TPE1|encoding[2]|text[日本語]", "TRCK|encoding[2]|text[05]",
          "COMM|encoding[2]|url[deu]|description[Notiz]|text[Grüße aus Köln]"},
         {"TAG Title[V1 Title] Artist[V1 Artist] Album[V1 Album] Year[2003] Comment[v1 comment] Track[5] Genre[8]"}},
    };
    return all;
}

TEST(RealWorldTags, FramesCarryWhatTheToolWrote)
{
    for (const Tagged& t : files()) {
        SCOPED_TRACE(t.file);
        File file(fromNativePath(testsupport::dataFile("tagged/" + t.file).c_str()), 1, 438);
        ID3v2 v2;
        ID3v1 v1;
        ASSERT_TRUE(v2.read(file, nullptr));
        EXPECT_EQ(std::tuple(v2.version(), v2.revision(), v2.flags(), v2.frames().size()),
                  std::tuple(t.file[t.file.find("-v2") + 3] - '0', 0, 0, t.frames.size()));
        std::vector<std::string> lines;
        for (const ID3v2Frame* f : v2.frames()) lines.push_back(toUtf8(f->toString().str()));
        for (const std::string& line : lines) EXPECT_EQ(line.find('\n'), std::string::npos) << "a frame takes more than a line: " << line;
        for (const std::string& f : t.frames) {
            std::vector<std::string> found;
            for (const std::string& line : lines)
                if (line.rfind(f.substr(0, 4) + " size[", 0) == 0) found.push_back(line);
            ASSERT_EQ(found.size(), 1u) << f;
            for (size_t at = 5; at < f.size(); at = std::min(f.find('|', at), f.size()) + 1)
                EXPECT_NE(found[0].find(f.substr(at, f.find('|', at) - at)), std::string::npos) << f.substr(at) << " not in " << found[0];
        }
        EXPECT_EQ(v1.read(file), !t.v1.empty());
        const std::string v1Text = toUtf8(v1.toString().str());
        for (const std::string& part : t.v1) EXPECT_NE(v1Text.find(part), std::string::npos) << part << " not in " << v1Text;
    }
}

} // namespace
