// --verbose on files tagged by other programs (eyeD3, mutagen, id3lib, ffmpeg):
// each frame line must carry exactly what the tool was asked to write.
// tests/data/make-tagged.sh made the files; tagged/README.md lists the values.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cctype>
#include <regex>
#include <sstream>

#include "e2e/Program.h"

namespace {

const std::string kRule(80, '-');

struct Frame {
    std::string id;                 // the line starting with "ID " must exist exactly once
    std::vector<std::string> parts; // and hold each of these
};

struct Tagged {
    std::string file;
    std::string tags;               // the "    tags[...]" number
    std::string header;             // start of the "ID3 ..." line
    size_t frameCount;              // frames the tool wrote
    std::vector<Frame> frames;
    std::vector<std::string> v1;    // parts of the "TAG ..." line; empty: no ID3v1 tag
};

void PrintTo(const Tagged& t, std::ostream* os) { *os << t.file; }

std::string pictureLength()
{
    struct stat st {};
    if (::stat(e2e::sample("tagged/cover.png").c_str(), &st) != 0) return "binary[missing cover.png]";
    return "binary[" + std::to_string(st.st_size) + "]";
}

const std::vector<Tagged>& files()
{
    static const std::string pic = pictureLength();
    static const std::vector<Tagged> all = {
        {"eyed3-v23-utf16.mp3", "300", "ID3 version[3] revision[0] flags[0] ", 8,
         {{"TIT2", {"encoding[1]", "text[Café]"}},
          {"TPE1", {"encoding[1]", "text[Ünïcödé]"}},
          {"TALB", {"encoding[1]", "text[日本語]"}},
          {"COMM", {"encoding[1]", "url[deu]", "description[Notiz]", "text[Größe zählt]"}},
          {"USLT", {"encoding[1]", "url[eng]", "description[Strophe]", "text[Première ligne — 日本語の歌詞]"}},
          {"TXXX", {"encoding[1]", "description[Stimmung]", "text[fröhlich ☀ 🎵]"}},
          {"WXXX", {"encoding[1]", "description[Heimseite]", "url[http://example.org/cafe]"}},
          {"APIC", {"encoding[1]", "type[3]", "url[image/png]", "description[Umschlag]", pic}}},
         {}},
        {"mutagen-v24-utf8.mp3", "400", "ID3 version[4] revision[0] flags[0] ", 8,
         {{"TIT2", {"encoding[3]", "text[Ünïcödé]"}},
          {"TPE1", {"encoding[3]", "text[日本語]"}},
          {"TALB", {"encoding[3]", "text[Café]"}},
          {"COMM", {"encoding[3]", "url[fra]", "description[Kommentar]", "text[Ça va très bien]"}},
          {"USLT", {"encoding[3]", "url[deu]", "description[Refrain]", "text[Straße — 日本語]"}},
          {"TXXX", {"encoding[3]", "description[Stimmung]", "text[ruhig ☕ 🎵]"}},
          {"WXXX", {"encoding[3]", "description[Heimseite]", "url[http://example.org/v24]"}},
          // mutagen writes a picture description in UTF-16 whatever the other frames use.
          {"APIC", {"encoding[1]", "type[3]", "url[image/png]", "description[Hülle]", pic}}},
         {}},
        {"id3lib-v23-v1.mp3", "301", "ID3 version[3] revision[0] flags[0] ", 8,
         {{"TIT2", {"encoding[0]", "text[Café Latin]"}},
          {"TPE1", {"encoding[0]", "text[Plain Artist]"}},
          {"TALB", {"encoding[0]", "text[Plain Album]"}},
          {"TYER", {"text[1999]"}},
          {"TRCK", {"text[7/12]"}},
          {"TCON", {"text[(13)]"}},
          {"COMM", {"encoding[0]", "url[eng]", "description[Notes]", "text[Short comment]"}},
          {"TXXX", {"encoding[0]", "description[Mood]", "text[calm]"}}},
         {"TAG Title[Café Latin] Artist[Plain Artist] Album[Plain Album] Year[1999] Comment[Short comment] Track[7] Genre[13]"}},
        // ffmpeg uses UTF-16 only for texts that are not ASCII, turns the comment
        // into a TXXX frame, and copies UTF-8 bytes as they are into ID3v1, so
        // only that tag's ASCII fields are checked.
        {"ffmpeg-v23-v1.mp3", "301", "ID3 version[3] revision[0] flags[0] ", 7,
         {{"TIT2", {"encoding[1]", "text[Café]"}},
          {"TPE1", {"encoding[1]", "text[日本語]"}},
          {"TALB", {"encoding[0]", "text[Plain Album]"}},
          {"TYER", {"text[2021]"}},
          {"TRCK", {"text[3]"}},
          {"TCON", {"text[Pop]"}},
          {"TXXX", {"encoding[0]", "description[comment]", "text[ffmpeg comment]"}}},
         {"TAG Title[", "Album[Plain Album] Year[2021] Comment[ffmpeg comment] Track[3] Genre[13]"}},
        {"eyed3-v24-utf16be-v1.mp3", "401", "ID3 version[4] revision[0] flags[0] ", 4,
         {{"TIT2", {"encoding[2]", "text[Größe]"}},
          {"TPE1", {"encoding[2]", "text[日本語]"}},
          {"COMM", {"encoding[2]", "url[deu]", "description[Notiz]", "text[Grüße aus Köln]"}}},
         {"TAG Title[V1 Title] Artist[V1 Artist] Album[V1 Album] Year[2003] Comment[v1 comment] Track[5] Genre[8]"}},
    };
    return all;
}

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

bool startsWith(const std::string& s, const std::string& prefix) { return s.compare(0, prefix.size(), prefix) == 0; }

// The lines after the "ID3 ..." line up to the next rule.
std::vector<std::string> id3v2Section(const std::vector<std::string>& all)
{
    std::vector<std::string> out;
    size_t i = 0;
    while (i < all.size() && !startsWith(all[i], "ID3 ")) ++i;
    for (++i; i < all.size() && all[i] != kRule; ++i) out.push_back(all[i]);
    return out;
}

class RealWorldTags : public ::testing::TestWithParam<Tagged> {};

TEST_P(RealWorldTags, FramesCarryWhatTheToolWrote)
{
    const Tagged& t = GetParam();
    auto r = e2e::sonarcat({"--verbose", e2e::sample("tagged/" + t.file)});
    ASSERT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err.find("Exception"), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("Invalid Frames"), std::string::npos) << r.err;
    const std::vector<std::string> out = lines(r.out);

    EXPECT_NE(r.out.find("\n    tags[" + t.tags + "] "), std::string::npos) << r.out;
    size_t headers = 0;
    for (const std::string& line : out) headers += startsWith(line, t.header) ? 1 : 0;
    EXPECT_EQ(headers, 1u) << "no single line starting with '" << t.header << "' in\n" << r.out;

    const std::vector<std::string> section = id3v2Section(out);
    for (const Frame& f : t.frames) {
        SCOPED_TRACE(f.id);
        std::vector<std::string> found;
        for (const std::string& line : section)
            if (startsWith(line, f.id + " size[")) found.push_back(line);
        ASSERT_EQ(found.size(), 1u) << r.out;
        for (const std::string& part : f.parts) EXPECT_NE(found[0].find(part), std::string::npos) << part << " not in " << found[0];
    }

    std::vector<std::string> v1;
    for (const std::string& line : out)
        if (startsWith(line, "TAG ")) v1.push_back(line);
    if (t.v1.empty()) {
        EXPECT_TRUE(v1.empty()) << v1[0];
    } else {
        ASSERT_EQ(v1.size(), 1u) << r.out;
        EXPECT_TRUE(startsWith(v1[0], "TAG Title[")) << v1[0];
        for (const std::string& part : t.v1) EXPECT_NE(v1[0].find(part), std::string::npos) << part << " not in " << v1[0];
    }
}

// A frame is one line, whatever bytes its picture or text holds: the section
// holds exactly as many lines as the tool wrote frames, each naming its frame.
TEST_P(RealWorldTags, EachFrameIsOneLine)
{
    const Tagged& t = GetParam();
    auto r = e2e::sonarcat({"--verbose", e2e::sample("tagged/" + t.file)});
    ASSERT_FALSE(r.timedOut);
    const std::vector<std::string> section = id3v2Section(lines(r.out));
    EXPECT_EQ(section.size(), t.frameCount) << r.out;
    const std::regex frameLine("[A-Z0-9]{4} size\\[[0-9]+\\] flags\\[[0-9]+\\] .*");
    for (const std::string& line : section) EXPECT_TRUE(std::regex_match(line, frameLine)) << "'" << line << "'";
}

std::string nameOf(const ::testing::TestParamInfo<Tagged>& info)
{
    std::string name;
    for (char c : info.param.file.substr(0, info.param.file.size() - 4)) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Files, RealWorldTags, ::testing::ValuesIn(files()), nameOf);

} // namespace
