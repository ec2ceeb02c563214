// The normal mode over a generated tree: every file's report, plain and verbose.
#include <gtest/gtest.h>

#include <regex>
#include <sys/stat.h>
#include <unistd.h>

#include "e2e/Program.h"
#include "e2e/Unprivileged.h"
#include "support/TagBuilder.h"
#include "support/TempDir.h"

using namespace tagfix;
using testsupport::maskTimes;

namespace {

const std::string kFileRule(80, '=');
const std::string kSectionRule(80, '-');

// The media report is MediaInfo's own text: the tests keep its first lines
// (General, Format) and mask the rest of each file's report.
std::string maskMediaReports(const std::string& out)
{
    static const std::regex report("(" + std::string(80, '-') + "\n)(General\n(Format: [^\n]*\n)?)[\\s\\S]*?\n(?=" + std::string(80, '=') + "\n)");
    return std::regex_replace(out, report, "$1$2<report>\n");
}

struct Expect {
    std::string dir, name;
    int tags;
    size_t size;
    std::string notes, format;
    int duration;
    std::vector<std::string> sections; // verbose tag sections, each opened by a section rule
    bool probed = true;                // MediaInfo opened the file (its report follows)
};

std::string block(const Expect& e, bool verbose)
{
    char tags[16];
    std::snprintf(tags, sizeof tags, "%03d", e.tags);
    std::string s = kFileRule + "\nDIR [" + e.dir + "]\nFILE[" + e.name + "]\n    tags[" + tags + "] size[" + std::to_string(e.size) +
                    "] mtime[<time>] notes[" + e.notes + "]\n    format[" + e.format + "] width[0] height[0] duration[" +
                    std::to_string(e.duration) + "]\n";
    if (!verbose) return s;
    for (const std::string& section : e.sections) s += kSectionRule + "\n" + section;
    s += kSectionRule + "\n";
    if (!e.probed) return s + "\n";
    return s + "General\n" + (e.format.empty() ? "" : "Format: " + e.format + "\n") + "<report>\n";
}

class ReportTree : public ::testing::Test {
protected:
    void SetUp() override
    {
        const std::string audio = readFile(e2e::sample("sine-1s.mp3"));
        root = dir / "music";
        for (const char* d : {"", "/...", "/.hidden", "/m-sub", "/o-empty"}) ::mkdir((root + d).c_str(), 0755);
        const std::string v23 = id3v2(3, {{"TIT2", textBody("Bravo")}, {"TPE1", textBody("Band")}}, 20);
        const std::string v22 = id3v2(2, {{"TT2", textBody("Hotel")}});
        const std::string v24 = id3v2(4, {{"TIT2", std::string("\x03", 1) + "India \xc3\xa9t\xc3\xa9"}});
        const std::string ape1 = ape(1000, {{"Title", "Foxtrot"}}, false);
        const std::string ape2 = ape(2000, {{"Title", "Golf"}, {"Cover", std::string("\x01\x02", 2), 2}}, true);
        const std::string v1 = id3v1("Alpha", "Band", "Album", "2001", "comment", 7, 255);
        const std::string audioPath = e2e::sample("sine-1s.mp3");
        const std::string r = root + "/", dots = root + "/.../", hidden = root + "/.hidden/", sub = root + "/m-sub/";
        const std::string v1Line = "TAG Title[Alpha] Artist[Band] Album[Album] Year[2001] Comment[comment] Track[7] Genre[-1]\n";
        struct Made {
            std::string path;
            std::string bytes;
            Expect expect;
        };
        std::vector<Made> made = {
            {dots + "y.mp3", audio + v1, {dots, "y.mp3", 1, 0, "", "MPEG Audio", 1, {v1Line}}},
            {hidden + "x.mp3", audio, {hidden, "x.mp3", 0, 0, "", "MPEG Audio", 1, {}}},
            {r + "A.MP3", audio + v1, {r, "A.MP3", 1, 0, "", "MPEG Audio", 1, {v1Line}}},
            {r + "b.Mp3", v23 + audio + v1,
             {r, "b.Mp3", 301, 0, "", "MPEG Audio", 1,
              {"ID3 version[3] revision[0] flags[0] size[" + std::to_string(v23.size() - 10) +
                   "] fsbits[8]\nTIT2 size[6] flags[0] encoding[0] type[0] text[Bravo]\nTPE1 size[5] flags[0] encoding[0] type[0] text[Band]\n",
               v1Line}}},
            {r + "c.mp3.bak", audio + v1, {r, "c.mp3.bak", 0, 0, "", "MPEG Audio", 1, {}}},
            {r + "d.ogg", "not really audio\n", {r, "d.ogg", 0, 0, "", "", 0, {}}},
            {r + "e", audio, {r, "e", 0, 0, "", "MPEG Audio", 1, {}}},
            {r + "f-ape1.mp3", audio + ape1,
             {r, "f-ape1.mp3", 10, 0, "", "MPEG Audio", 1,
              {"APETAGEX version[1000] size[" + std::to_string(ape1.size()) + "] count[1] flags[0]\nsize[7] flags[0] key[Title] value[Foxtrot]\n"}}},
            {r + "g-ape2.mp3", audio + ape2,
             {r, "g-ape2.mp3", 20, 0, "", "MPEG Audio", 1,
              {"APETAGEX version[2000] size[" + std::to_string(ape2.size() - 32) +
               "] count[2] flags[80000000]\nsize[4] flags[0] key[Title] value[Golf]\nsize[2] flags[2] key[Cover] value[..]\n"}}},
            {r + "h-v22.mp3", v22 + audio,
             {r, "h-v22.mp3", 200, 0, "", "MPEG Audio", 1,
              {"ID3 version[2] revision[0] flags[0] size[12] fsbits[8]\nTT2 size[6] flags[0] encoding[0] type[0] text[Hotel]\n"}}},
            {r + "i-all.mp3", v24 + audio + ape2 + v1,
             {r, "i-all.mp3", 421, 0, "", "MPEG Audio", 1,
              {"ID3 version[4] revision[0] flags[0] size[" + std::to_string(v24.size() - 10) +
                   "] fsbits[8]\nTIT2 size[12] flags[0] encoding[3] type[0] text[India été]\n",
               "APETAGEX version[2000] size[" + std::to_string(ape2.size() - 32) +
                   "] count[2] flags[80000000]\nsize[4] flags[0] key[Title] value[Golf]\nsize[2] flags[2] key[Cover] value[..]\n",
               v1Line}}},
            {sub + "z.mp3", audio, {sub, "z.mp3", 0, 0, "", "MPEG Audio", 1, {}}},
            {r + "n-after.mp3", audio, {r, "n-after.mp3", 0, 0, "", "MPEG Audio", 1, {}}},
        };
        for (Made& m : made) {
            writeFile(m.path, m.bytes);
            m.expect.size = m.bytes.size();
            expected.push_back(m.expect);
        }
        // Files that cannot be read still get their report, and the walk goes on.
        ASSERT_EQ(::mkfifo((root + "/p-fifo.mp3").c_str(), 0644), 0);
        ASSERT_EQ(::symlink("nowhere.mp3", (root + "/q-dangling.mp3").c_str()), 0);
        ASSERT_EQ(::mkfifo((root + "/s-fifo").c_str(), 0644), 0);
        expected.push_back({r, "p-fifo.mp3", 0, 0, "Open Failed: not a regular file [" + r + "p-fifo.mp3]", "", 0, {}, false});
        expected.push_back({r, "q-dangling.mp3", 0, 11, "Open Failed [" + r + "q-dangling.mp3]", "", 0, {}, false});
        expected.push_back({r, "s-fifo", 0, 0, "MediaInfo Open Failed [" + r + "s-fifo]", "", 0, {}, false});
        errors = "IOException: Open Failed: not a regular file [" + r + "p-fifo.mp3]\n"
                 "IOException: Open Failed [" + r + "q-dangling.mp3] (No such file or directory)\n"
                 "IOException: MediaInfo Open Failed [" + r + "s-fifo]\n";
    }

    std::string expectedOutput(bool verbose) const
    {
        std::string s = "Start [<time>]\n";
        if (verbose) s += "      [sonarcat --verbose=true --summary=false --database= --dry-run=false values[" + root + "]]\n";
        s += kFileRule + "\n";
        for (const Expect& e : expected) s += block(e, verbose);
        return s + kFileRule + "\nFinish [<time>]\n";
    }

    testsupport::TempDir dir;
    std::string root, errors;
    std::vector<Expect> expected; // in walk order
};

TEST_F(ReportTree, PlainReportOfEveryFile)
{
    auto r = e2e::sonarcat({root});
    ASSERT_FALSE(r.timedOut);
    EXPECT_EQ(maskTimes(r.out), expectedOutput(false));
    EXPECT_EQ(r.err.substr(0, errors.size()), errors);
    EXPECT_NE(r.err.find(e2e::kCleanLeakReport), std::string::npos) << r.err;
}

TEST_F(ReportTree, VerboseReportShowsEveryTagSection)
{
    auto r = e2e::sonarcat({"--verbose", root});
    ASSERT_FALSE(r.timedOut);
    EXPECT_EQ(maskMediaReports(maskTimes(r.out)), expectedOutput(true));
    EXPECT_EQ(r.err.substr(0, errors.size()), errors);
    EXPECT_NE(r.err.find(e2e::kCleanLeakReport), std::string::npos) << r.err;
}

TEST_F(ReportTree, SingleFileIsReadWhateverItsName)
{
    auto r = e2e::sonarcat({root + "/b.Mp3"});
    EXPECT_NE(maskTimes(r.out).find(block(expected[3], false)), std::string::npos) << r.out;
    auto bak = e2e::sonarcat({root + "/c.mp3.bak"});
    EXPECT_NE(maskTimes(bak.out).find(block(expected[4], false)), std::string::npos) << bak.out;
}

TEST(ReportFiles, UnreadableFileDoesNotStopTheWalk)
{
    testsupport::TempDir dir;
    ::chmod(dir.path().c_str(), 0755);
    writeFile(dir / "a-locked.mp3", readFile(e2e::sample("sine-1s.mp3")));
    writeFile(dir / "b-open.mp3", readFile(e2e::sample("sine-1s.mp3")));
    ::chmod((dir / "a-locked.mp3").c_str(), 0);
    ::chmod((dir / "b-open.mp3").c_str(), 0644);
    auto r = e2e::Unprivileged().run({dir.path()});
    EXPECT_NE(r.out.find("notes[Open Failed [" + dir.path() + "/a-locked.mp3]]"), std::string::npos) << r.out << r.err;
    EXPECT_NE(r.out.find("FILE[b-open.mp3]\n    tags[000] size[8567]"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find("IOException: Open Failed [" + dir.path() + "/a-locked.mp3] (Permission denied)\n"), std::string::npos) << r.err;
}

} // namespace
