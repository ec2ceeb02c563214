// The program's start, its refusals and its closing lines.
#include <gtest/gtest.h>

#include "e2e/Program.h"
#include "support/TempDir.h"

using testsupport::maskTimes;

namespace {

const std::string kSeparator(80, '=');

struct Refusal {
    std::vector<std::string> args;
    std::string message;
};

TEST(CommandLine, RefusedLinesPrintWhyAndRunNothing)
{
    const Refusal cases[] = {
        {{}, "sonarcat: missing PATH"},
        {{"--summary"}, "sonarcat: missing PATH"},
        {{"--bogus", "/tmp"}, "sonarcat: unrecognized option '--bogus'"},
        {{"-x", "/tmp"}, "sonarcat: invalid option -- 'x'"},
        {{"--verbose=yes", "/tmp"}, "sonarcat: option '--verbose' doesn't allow an argument"},
        {{"--database"}, "sonarcat: option '--database' requires an argument"},
    };
    for (const Refusal& c : cases) {
        auto r = e2e::sonarcat(c.args);
        SCOPED_TRACE(c.message);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, "");
        EXPECT_NE(r.err.find(c.message + "\nTry 'sonarcat --help' for more information.\n"), std::string::npos) << r.err;
        EXPECT_NE(r.err.find(e2e::kCleanLeakReport), std::string::npos) << r.err;
    }
}

TEST(CommandLine, HelpAndVersionRunNothing)
{
    auto help = e2e::sonarcat({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("sonarcat 1.1.2\nCollects mp3 tags\n", 0), 0u) << help.out;
    // Help texts start in column 28, where the database examples line up after three tabs and four blanks.
    auto row = [](const std::string& label, const std::string& help) { return label + std::string(28 - label.size(), ' ') + help; };
    for (const std::string& expected :
         {row("  -s, --summary", "Summary of tag items\n"), row("  -v, --verbose", "Produce verbose output\n"),
          std::string("\nThe following options should be grouped together:\n"),
          row("  -d, --database=STRING", "Database connection.\n\t\t\t    DRIVER=ZELFirebird;"),
          std::string("\n\t\t\t    DRIVER=ZELSQLite3;   DATABASE="), std::string("\n\t\t\t    DRIVER={ODBC Driver 18 for SQL Server};Server="),
          row("  -n, --dry-run", "perform a trial run with no changes made\n")})
        EXPECT_NE(help.out.find(expected), std::string::npos) << expected;
    EXPECT_EQ(help.out.find("Start ["), std::string::npos);

    auto version = e2e::sonarcat({"--version"});
    EXPECT_EQ(version.out, "sonarcat 1.1.2\n");
}

TEST(CommandLine, VerboseAddsTheOptionsLineExactlyAsTyped)
{
    testsupport::TempDir dir;
    auto r = e2e::sonarcat({"-s", "--verbose", "--database=DRIVER=ZELSQLite3;PASSWORD=s3cret", "--database=DRIVER=ZELSQLite3;DATABASE=x.sqlite3",
                            "--dry-run", dir.path(), "/second/ignored"});
    EXPECT_EQ(maskTimes(r.out), "Start [<time>]\n"
                                "      [sonarcat --verbose=true --summary=true --database=DRIVER=ZELSQLite3;DATABASE=x.sqlite3 --dry-run=true values[" +
                                    dir.path() + ", /second/ignored]]\n" + kSeparator + "\n[" + dir.path() +
                                    "] ID3v1[0] ID3v22[0] ID3v23[0] ID3v24[0] APEv1[0] APEv2[0] error[0]\n" + kSeparator +
                                    "\nFinish [<time>]\n");
    EXPECT_NE(r.err.find(e2e::kCleanLeakReport), std::string::npos) << r.err;
}

TEST(CommandLine, EveryOptionFormReachesTheOptions)
{
    struct Form {
        std::vector<std::string> args;
        std::string options;
    };
    const std::string flags = "sonarcat --verbose=true --summary=true --database=";
    const Form forms[] = {
        {{"-sv", "-dDRIVER=X", "/a"}, flags + "DRIVER=X --dry-run=false values[/a]"},
        {{"-vsn", "-d", "DRIVER=Y", "/a"}, flags + "DRIVER=Y --dry-run=true values[/a]"},
        {{"--summary", "--verbose", "--database", "DRIVER=Z", "/a", "/b"}, flags + "DRIVER=Z --dry-run=false values[/a, /b]"},
        {{"-sv", "--", "-n", "--dry-run"}, flags + " --dry-run=false values[-n, --dry-run]"},
    };
    for (const Form& f : forms) {
        auto r = e2e::sonarcat(f.args);
        EXPECT_NE(r.out.find("\n      [" + f.options + "]\n"), std::string::npos) << r.out;
    }
}

TEST(CommandLine, ErrorEscapingTheRunStillPrintsTheClosingLines)
{
    auto r = e2e::sonarcat({"--summary", "/nonexistent/path.mp3"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(maskTimes(r.out), "Start [<time>]\n" + kSeparator + "\n" + kSeparator + "\nFinish [<time>]\n");
    EXPECT_NE(r.err.find("IOException: Open Failed [/nonexistent/path.mp3] (No such file or directory)\n"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(e2e::kCleanLeakReport), std::string::npos) << r.err;
}

TEST(CommandLine, UnusableMediaInfoLibraryEndsWithTheFinalWarning)
{
    // A library of that name without its functions comes first on the search path.
    auto env = testsupport::plainEnvironment();
    env.push_back(std::string("LD_LIBRARY_PATH=") + FAKE_MEDIAINFO_DIR);
    auto r = e2e::sonarcat({"--summary", "--verbose", "/tmp"}, env);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.find("Finish ["), std::string::npos);
    EXPECT_EQ(maskTimes(r.out).rfind("Start [<time>]\n      [sonarcat --verbose=true", 0), 0u) << r.out;
    EXPECT_NE(r.out.find(kSeparator + "\n"), std::string::npos);
    EXPECT_EQ(r.err.rfind("Warning!! Final Exception: DllException: Cannot load [libmediainfo.so.0]: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find("undefined symbol: MediaInfo_New"), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("Memory:"), std::string::npos) << "no leak report on the final path";
}

} // namespace
