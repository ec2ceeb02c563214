// The --summary census over a generated tree of tagged files.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "e2e/Program.h"
#include "support/TagBuilder.h"
#include "support/TempDir.h"

using namespace tagfix;
using testsupport::maskTimes;

namespace {

const std::string kSeparator(80, '=');

std::string counts(int v1, int v22, int v23, int v24, int a1, int a2, int err)
{
    return "ID3v1[" + std::to_string(v1) + "] ID3v22[" + std::to_string(v22) + "] ID3v23[" + std::to_string(v23) + "] ID3v24[" +
           std::to_string(v24) + "] APEv1[" + std::to_string(a1) + "] APEv2[" + std::to_string(a2) + "] error[" + std::to_string(err) + "]";
}

class CensusTree : public ::testing::Test {
protected:
    void SetUp() override
    {
        const std::string audio = readFile(e2e::sample("sine-1s.mp3"));
        const std::string v1 = id3v1("Title", "Artist");
        const std::vector<ApeItem> items = {{"Title", "Song"}, {"Artist", "Band"}};
        const std::string v23 = id3v2(3, {{"TIT2", textBody("Song")}}, 64);
        root = dir / "music";
        for (const char* d : {"", "/...", "/.hidden", "/empty", "/sub", "/sub/deep"}) ::mkdir((root + d).c_str(), 0755);
        struct File {
            const char* name;
            std::string bytes;
        };
        const File files[] = {
            {"/.../x.mp3", audio + v1},
            {"/.hidden/h.mp3", v23 + audio},
            {"/A.MP3", audio + v1},
            {"/ape-end-v1.mp3", audio + ape(1000, items, false)},
            {"/ape-end-v2-v1.mp3", audio + ape(2000, items, true) + v1},
            // A version below 1000 at the start lets the end decide.
            {"/ape-low-start.mp3", ape(999, items, true) + audio + ape(2000, items, true)},
            // A tag at the start is taken from there; the end is not searched.
            {"/ape-start-v1.mp3", ape(1000, items, true) + audio + ape(2000, items, true)},
            {"/b.Mp3", id3v2(4, {{"TIT2", textBody("x")}}) + audio},
            {"/c.mp3.bak", audio + v1},
            {"/empty.mp3", ""},
            {"/notes.txt", audio + v1},
            {"/short.mp3", std::string("ID3\x03\0\0\0\0\0\0TAG", 14) + std::string(6, 'x')},
            {"/sub/deep/d.mp3", id3v2(2, {{"TT2", textBody("x")}}) + audio},
            {"/sub/s.mp3", id3v2(4, {}) + audio + ape(1000, items, false)},
            {"/v22.mp3", id3v2(2, {}) + audio},
            {"/v23-ape2-v1.mp3", v23 + audio + ape(2000, items, true) + v1},
            {"/v5.mp3", std::string("ID3\x05\0\0\0\0\0\0", 10) + audio},
        };
        for (const File& f : files) writeFile(root + f.name, f.bytes);
        ASSERT_EQ(::mkfifo((root + "/sub/deep/fifo.mp3").c_str(), 0644), 0);
        ASSERT_EQ(::symlink("missing-target.mp3", (root + "/dangling.mp3").c_str()), 0);
        ASSERT_EQ(::symlink("..", (root + "/sub/up").c_str()), 0); // a loop back up the tree
    }

    testsupport::TempDir dir;
    std::string root;
};

TEST_F(CensusTree, CountsEveryTagKindAndEveryFailure)
{
    auto r = e2e::sonarcat({"--summary", "--verbose", root});
    ASSERT_FALSE(r.timedOut);
    const std::string expected =
        "Start [<time>]\n"
        "      [sonarcat --verbose=true --summary=true --database= --dry-run=false values[" + root + "]]\n" +
        kSeparator + "\n" +
        "[  x.mp3] " + counts(1, 0, 0, 0, 0, 0, 0) + "\n" +
        "[" + root + "/...] " + counts(1, 0, 0, 0, 0, 0, 0) + "\n" +
        "[  h.mp3] " + counts(0, 0, 1, 0, 0, 0, 0) + "\n" +
        "[" + root + "/.hidden] " + counts(0, 0, 1, 0, 0, 0, 0) + "\n" +
        "[  A.MP3] " + counts(1, 0, 0, 0, 0, 0, 0) + "\n" +
        "[  ape-end-v1.mp3] " + counts(0, 0, 0, 0, 1, 0, 0) + "\n" +
        "[  ape-end-v2-v1.mp3] " + counts(1, 0, 0, 0, 0, 1, 0) + "\n" +
        "[  ape-low-start.mp3] " + counts(0, 0, 0, 0, 0, 1, 0) + "\n" +
        "[  ape-start-v1.mp3] " + counts(0, 0, 0, 0, 1, 0, 0) + "\n" +
        "[  b.Mp3] " + counts(0, 0, 0, 1, 0, 0, 0) + "\n" +
        "[" + root + "/empty] " + counts(0, 0, 0, 0, 0, 0, 0) + "\n" +
        "[  empty.mp3] " + counts(0, 0, 0, 0, 0, 0, 0) + "\n" +
        "[  short.mp3] " + counts(0, 0, 0, 0, 0, 0, 0) + "\n" +
        "[  d.mp3] " + counts(0, 1, 0, 0, 0, 0, 0) + "\n" +
        "[" + root + "/sub/deep] " + counts(0, 1, 0, 0, 0, 0, 1) + "\n" +
        "[  s.mp3] " + counts(0, 0, 0, 1, 1, 0, 0) + "\n" +
        "[" + root + "/sub] " + counts(0, 1, 0, 1, 1, 0, 1) + "\n" +
        "[  v22.mp3] " + counts(0, 1, 0, 0, 0, 0, 0) + "\n" +
        "[  v23-ape2-v1.mp3] " + counts(1, 0, 1, 0, 0, 1, 0) + "\n" +
        "[  v5.mp3] " + counts(0, 0, 0, 0, 0, 0, 0) + "\n" +
        "[" + root + "] " + counts(4, 2, 2, 2, 3, 3, 2) + "\n" +
        kSeparator + "\nFinish [<time>]\n";
    EXPECT_EQ(maskTimes(r.out), expected);
    const std::string expectedErr =
        "IOException: Open Failed [" + root + "/dangling.mp3] (No such file or directory)\n"
        "IOException: Open Failed: not a regular file [" + root + "/sub/deep/fifo.mp3]\n"
        "Link to a directory above skipped [" + root + "/sub/up]\n";
    EXPECT_EQ(r.err.substr(0, expectedErr.size()), expectedErr);
    EXPECT_NE(r.err.find(e2e::kCleanLeakReport), std::string::npos) << r.err;
    EXPECT_EQ(r.status, 0);
}

TEST_F(CensusTree, WithoutVerboseOnlyTheTotal)
{
    auto r = e2e::sonarcat({"--summary", "--database=DRIVER=ZELSQLite3;DATABASE=/nonexistent/dir/x.sqlite3", root + "/"});
    EXPECT_EQ(maskTimes(r.out), "Start [<time>]\n" + kSeparator + "\n[" + root + "/] " + counts(4, 2, 2, 2, 3, 3, 2) + "\n" + kSeparator +
                                    "\nFinish [<time>]\n");
}

TEST_F(CensusTree, SingleFileIsExaminedWhateverItsName)
{
    struct Case {
        const char* name;
        std::string line;
    };
    const Case cases[] = {
        {"/v23-ape2-v1.mp3", counts(1, 0, 1, 0, 0, 1, 0)},
        {"/notes.txt", counts(1, 0, 0, 0, 0, 0, 0)},
        {"/short.mp3", counts(0, 0, 0, 0, 0, 0, 0)},
    };
    for (const Case& c : cases) {
        auto r = e2e::sonarcat({"--summary", root + c.name});
        EXPECT_NE(r.out.find("\n[" + root + c.name + "] " + c.line + "\n"), std::string::npos) << r.out;
    }
}

TEST(CensusNames, NonAsciiNamesSurviveEveryLocale)
{
    testsupport::TempDir dir;
    const std::string top = dir / "Ünïcödé 日本語";
    ::mkdir(top.c_str(), 0755);
    const std::string audio = readFile(e2e::sample("tone-2500ms.mp3"));
    writeFile(top + "/é-ü-日本語.mp3", audio + id3v1("t"));
    writeFile(top + "/bad\xff\xfe.mp3", id3v2(3, {}) + audio); // not valid UTF-8
    for (const std::string& lang : {std::string(), std::string("C"), std::string("C.UTF-8")}) {
        SCOPED_TRACE("LANG=" + lang);
        auto r = e2e::sonarcat({"--summary", "--verbose", top}, testsupport::plainEnvironment(lang));
        EXPECT_NE(r.out.find("[  bad\xff\xfe.mp3] " + counts(0, 0, 1, 0, 0, 0, 0) + "\n"), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("[  é-ü-日本語.mp3] " + counts(1, 0, 0, 0, 0, 0, 0) + "\n"), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("[" + top + "] " + counts(1, 0, 1, 0, 0, 0, 0) + "\n"), std::string::npos) << r.out;
        EXPECT_EQ(r.err.find("Exception"), std::string::npos) << r.err;
    }
}

} // namespace
