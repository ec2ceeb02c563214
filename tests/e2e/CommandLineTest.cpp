// The program's command line: what it refuses, --help and --version, how
// the options reach the run, the manual page's copy of the help texts, and a
// MediaInfo library that cannot be used.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <sstream>

#include "support/Files.h"
#include "support/Program.h"

using namespace testsupport;

namespace {

const std::string kRule(80, '=');

TEST(CommandLine, RefusedLinesPrintWhyAndRunNothing)
{
    const struct {
        std::vector<std::string> args;
        std::string message;
    } cases[] = {
        {{}, "missing PATH"},
        {{"--summary"}, "missing PATH"},
        {{"--bogus", "/tmp"}, "unrecognized option '--bogus'"},
        {{"-x", "/tmp"}, "invalid option -- 'x'"},
        {{"--verbose=yes", "/tmp"}, "option '--verbose' doesn't allow an argument"},
        {{"--help=1"}, "option '--help' doesn't allow an argument"},
        {{"--version=1", "/tmp"}, "option '--version' doesn't allow an argument"},
        {{"--database"}, "option '--database' requires an argument"},
        {{"--update", "/tmp"}, "--update needs --database: it updates a catalogue"},
        {{"-su", "-dDRIVER=ZELSQLite3;DATABASE=x", "/tmp"}, "--update cannot go with --summary: the census stores nothing"},
        {{"--probe-timeout=10s", "/tmp"}, "invalid probe timeout '10s': a number of seconds from 0 (no limit) to 86400"},
        {{"--probe-timeout=", "/tmp"}, "invalid probe timeout '': a number of seconds from 0 (no limit) to 86400"},
        {{"--probe-timeout", "86401", "/tmp"}, "invalid probe timeout '86401': a number of seconds from 0 (no limit) to 86400"},
        {{"--jobs=0", "/tmp"}, "invalid jobs '0': a number of files from 1 to 256"},
        {{"--jobs", "257", "/tmp"}, "invalid jobs '257': a number of files from 1 to 256"},
        {{"--charset=KOI9", "/tmp"}, "unknown character set 'KOI9'"},
        {{"--charset=", "/tmp"}, "unknown character set ''"}, // iconv: the locale's
        {{"--charset=//TRANSLIT", "/tmp"}, "unknown character set '//TRANSLIT'"},
    };
    for (const auto& c : cases) {
        const Result r = sonarcat(c.args);
        EXPECT_EQ(std::tuple(r.status, r.out), std::tuple(0, std::string())) << c.message;
        EXPECT_EQ(r.err.rfind("sonarcat: " + c.message + "\nTry 'sonarcat --help' for more information.\n", 0), 0u) << r.err;
        EXPECT_FALSE(has(r.err, "Memory")) << "a clean exit says nothing of memory: " << r.err;
    }
}

// --help and --version run nothing. The manual page repeats each option's help text and every connection-string example of
// --help, so that the two cannot drift apart.
TEST(CommandLine, HelpAndVersionRunNothingAndTheManualPageRepeatsTheHelp)
{
    const Result help = sonarcat({"--help"}), version = sonarcat({"--version"});
    EXPECT_EQ(help.out.rfind("sonarcat 1.1.2\nCollects mp3 tags\n", 0), 0u) << help.out;
    EXPECT_TRUE(has(help.out, "\nThe following options should be grouped together:\n  -d, --database=STRING")) << help.out;
    EXPECT_FALSE(has(help.out, "Start ["));
    EXPECT_EQ(std::tuple(version.out, help.err, version.err), std::tuple(std::string("sonarcat 1.1.2\n"), std::string(), std::string()));
    std::string manual = readFile(std::string(SONARCAT_SOURCE_DIR) + "/doc/sonarcat.1");
    for (size_t at; (at = manual.find("\\-")) != std::string::npos;) manual.erase(at, 1); // troff's minus
    std::istringstream lines(help.out);
    size_t texts = 0, examples = 0;
    for (std::string line; std::getline(lines, line);) {
        const size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || (line[0] != '\t' && line[start] != '-')) continue;
        examples += line.rfind("\t\t\t    DRIVER=", 0) == 0;
        size_t text = line[0] == '\t' ? start : line.find_first_not_of(' ', line.find("  ", start));
        if (text == std::string::npos && std::getline(lines, line))
            text = line.find_first_not_of(' '); // a long label: the text on the next line
        ASSERT_LT(text, line.size()) << line;
        EXPECT_TRUE(has(manual, line.substr(text))) << line;
        ++texts;
    }
    EXPECT_EQ(std::tuple(texts, examples), std::tuple(11u + 9u, 9u)) << "eleven options and nine connection strings";
}

TEST(CommandLine, EveryOptionFormReachesTheRunAndTheVerboseLine)
{
    TempDir dir;
    const Result r = sonarcat({"-s", "--verbose", "--database=DRIVER=ZELSQLite3;PASSWORD=s3cret",
                               "--database=DRIVER=ZELSQLite3;DATABASE=x.sqlite3", "--dry-run", dir.path(), "/second/ignored"});
    EXPECT_EQ(maskTimes(r.out), "Start [<time>]\n      [sonarcat --verbose=true --summary=true "
                                "--database=DRIVER=ZELSQLite3;DATABASE=x.sqlite3 --dry-run=true values[" +
                                    dir.path() + ", /second/ignored]]\n" + kRule + "\n[" + dir.path() +
                                    "] ID3v1[0] ID3v22[0] ID3v23[0] ID3v24[0] APEv1[0] APEv2[0] error[0]\n" + kRule +
                                    "\nFinish [<time>]\n");
    EXPECT_EQ(r.err.rfind("Memory: 0 block(s) of the program still held, ", 0), 0u) << "--verbose counts the blocks: " << r.err;
    const std::string flags = "sonarcat --verbose=true --summary=true --database=";
    const struct {
        std::vector<std::string> args;
        std::string options;
    } forms[] = {
        {{"-sv", "-dDRIVER=X", "/a"}, flags + "DRIVER=X --dry-run=false values[/a]"},
        {{"-vsn", "-d", "DRIVER=Y", "/a"}, flags + "DRIVER=Y --dry-run=true values[/a]"},
        {{"--summary", "--verbose", "--database", "DRIVER=Z", "/a", "/b"}, flags + "DRIVER=Z --dry-run=false values[/a, /b]"},
        {{"-sv", "--", "-n", "--dry-run"}, flags + " --dry-run=false values[-n, --dry-run]"},
        {{"-sv", "--all-formats", "--probe-timeout", "0", "--charset", "cp1251", "--jobs=3", "/a"},
         flags + " --dry-run=false --probe-timeout=0 --charset=cp1251 --jobs=3 --all-formats values[/a]"}, // only when given
        {{"-vu", "-dDRIVER=X", "/a"},
         "sonarcat --verbose=true --summary=false --database=DRIVER=X --dry-run=false --update=true values[/a]"},
    };
    for (const auto& f : forms) EXPECT_TRUE(has(sonarcat(f.args).out, "\n      [" + f.options + "]\n")) << f.options;
}

// --charset reads what tags mark as Latin-1 in the set it names: ID3v1 fields, ID3v2 text of encoding 0 and of the values no version
// defines, an APE value that is not UTF-8; not UTF-16 or UTF-8 text, nor URLs. Bytes not valid in the set, or cut short, are Latin-1.
TEST(CommandLine, CharsetReadsWhatTagsMarkAsLatin1)
{
    using namespace std::string_literals;
    const std::string audio = readFile(dataFile("sine-1s.mp3")), song = "\xc3\xf0\xf3\xef\xef\xe0 \xea\xf0\xee\xe2\xe8",
                      band = "\xca\xe8\xed\xee";
    const struct {
        std::string charset, bytes;
        std::vector<std::string> lines;
    } cases[] = {
        {"cp1251",
         id3v2(3, {{"TIT2", textBody(song)},
                   {"TPE1", "\x01\xff\xfe\x1a\x04\x38\x04\x3d\x04\x3e\x04"s},
                   {"TALB", textBody("Звезда", 3)},
                   {"COMM", "\0rus\xc3\xee\xe4\0\xd5\xe8\xf2"s},
                   {"TIT3", textBody(band, 7)},
                   {"WXXX", "\0\xd1\xe0\xe9\xf2\0http://x/\xe9"s}}) +
             audio + ape(2000, {{"Title", song}, {"Artist", "Кино"}}, true) + id3v1(song, band, "", "1988", "\xd5\xe8\xf2", 1, 17),
         {"TIT2 size[13] flags[0] encoding[0] type[0] text[Группа крови]\nTPE1 size[11] flags[0] encoding[1] type[0] text[Кино]",
          "TALB size[13] flags[0] encoding[3] type[0] text[Звезда]\nCOMM size[11] flags[0] encoding[0] type[0] url[rus] description[Год] "
          "text[Хит]",
          "TIT3 size[5] flags[0] encoding[7] type[0] text[Кино]\nWXXX size[16] flags[0] encoding[0] type[0] url[http://x/é] "
          "description[Сайт]",
          "key[Title] value[Группа крови]\nsize[8] flags[0] key[Artist] value[Кино]",
          "Title[Группа крови] Artist[Кино] Album[] Year[1988] Comment[Хит] Track[1]"}},
        // 15 characters in the comment's 30 bytes: no track number.
        {"SHIFT_JIS",
         audio + id3v1("\x93\xfa\x96\x7b\x8c\xea", "caf\xe9", "\xe9 x", "", std::string(30, '\x89')),
         {"Title[日本語] Artist[café] Album[é x] Year[] Comment[演演演演演演演演演演演演演演演] Track[0]"}},
        {"GBK",
         id3v2(4, {{"TIT2", textBody("\xd6\xd0\xce\xc4\xb8\xe8\xc7\xfa")},
                   {"TPE1", textBody("歌手", 3)},
                   {"TALB", "\x01\xff\xfe\x13\x4e\x91\x8f"s}}) +
             audio,
         {"encoding[0] type[0] text[中文歌曲]\nTPE1 size[7] flags[0] encoding[3] type[0] text[歌手]\nTALB size[7] flags[0] encoding[1] "
          "type[0] text[专辑]"}},
        {"TSCII", audio + id3v1("\x82"), {"Title[ஸ்ரீ] Artist[]"}},
        {"CP1258", audio + id3v1("a\xec Nam"), {"Title[á Nam] Artist[]"}},                       // 4 characters of 1 byte; a letter waits
        {"UTF-7", audio + id3v1("+AGEAAABi-", "+AGEAYgBj-"), {"Title[+AGEAAABi-] Artist[abc]"}}, // U+0000 (a+AAA-b) is no text
    };
    TempDir dir;
    for (const auto& c : cases) {
        writeFile(dir / (c.charset + ".mp3"), c.bytes);
        const std::string out = sonarcat({"--verbose", "--charset=" + c.charset, dir / (c.charset + ".mp3")}).out;
        for (const std::string& line : c.lines) EXPECT_TRUE(has(out, line)) << line << "\n" << out;
    }
    // ISO-8859-1 prints what no option prints, but for the options line.
    std::string plain = maskTimes(sonarcat({"--verbose", dir / "cp1251.mp3"}).out);
    EXPECT_EQ(maskTimes(sonarcat({"--verbose", "--charset=ISO-8859-1", dir / "cp1251.mp3"}).out),
              plain.insert(plain.find(" values["), " --charset=ISO-8859-1"));
}

// With standard error on a terminal and the report in a file, a status line
// says how far the run is: erased before an error line and drawn again after
// it, erased at the end. Without a terminal nothing of it is written, and the
// report is the same either way.
TEST(CommandLine, AStatusLineOnATerminalOnly)
{
    TempDir dir, elsewhere;
    writeFile(dir / "a.mp3", readFile(dataFile("sine-1s.mp3")));
    ::mkfifo((dir / "b-fifo.mp3").c_str(), 0644); // an error line
    const std::string erase = "\r\033[K", program = std::string(SONARCAT_BINARY) + " '" + dir.path() + "'";
    const Result terminal = run({"/usr/bin/script", "-qec", program + " > '" + elsewhere / "report" + "'", "/dev/null"});
    EXPECT_TRUE(has(terminal.out, " files, ")) << terminal.out;
    EXPECT_TRUE(has(terminal.out, erase + "IOException: Open Failed: not a regular file [")) << terminal.out;
    EXPECT_EQ(terminal.out.substr(terminal.out.size() - erase.size()), erase) << "the terminal is left clean";
    const Result plain = sonarcat({dir.path()});
    EXPECT_FALSE(has(plain.err, "\r")) << plain.err;
    EXPECT_EQ(maskTimes(readFile(elsewhere / "report")), maskTimes(plain.out));
}

TEST(CommandLine, UnusableMediaInfoLibraryEndsWithTheFinalWarning)
{
    Launch launch;
    launch.env.push_back(std::string("LD_LIBRARY_PATH=") + FAKE_MEDIAINFO_DIR); // a library of that name without its functions
    const Result r = sonarcat({"--summary", "--verbose", "/tmp"}, launch);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(maskTimes(r.out).rfind("Start [<time>]\n      [sonarcat --verbose=true", 0), 0u) << r.out;
    EXPECT_EQ(r.out.substr(r.out.size() - 81), kRule + "\n") << "no Finish line";
    EXPECT_EQ(r.err.rfind("Warning!! Final Exception: DllException: Cannot load [libmediainfo.so.0]: ", 0), 0u) << r.err;
    EXPECT_TRUE(has(r.err, "undefined symbol: MediaInfo_New")) << r.err;
    EXPECT_FALSE(has(r.err, "Memory:")) << "no leak report on the final path";
}

} // namespace
