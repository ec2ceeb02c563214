// A verbose run that stores every kind of tag, on both databases, checked by
// valgrind's memcheck: no invalid access, no use of undefined bytes, nothing
// definitely lost. The same run without valgrind must end with an empty leak
// report of the program's own. The sanitizer build cannot run under valgrind.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "e2e/Catalogue.h"
#include "e2e/Program.h"
#include "support/TagBuilder.h"

using namespace tagfix;

namespace {

// Every file of the test data, and one that carries all three tag kinds.
size_t makeTree(const std::string& root)
{
    const std::string data = SONARCAT_TEST_DATA;
    size_t files = 0;
    for (const char* name : {"sine-1s.mp3", "sine-3s-stereo.mp3", "tone-2500ms.mp3", "tagged/eyed3-v23-utf16.mp3",
                             "tagged/eyed3-v24-utf16be-v1.mp3", "tagged/ffmpeg-v23-v1.mp3", "tagged/id3lib-v23-v1.mp3",
                             "tagged/mutagen-v24-utf8.mp3", "tagged/cover.png"}) {
        const std::string base = std::string(name).substr(std::string(name).rfind('/') + 1);
        writeFile(root + "/" + base, readFile(data + "/" + name));
        ++files;
    }
    ::mkdir((root + "/all").c_str(), 0755);
    const std::string v24 = id3v2(4, {{"TIT2", textBody("Title", 3)}, {"TXXX", textBody("k\0v", 0)},
                                      {"COMM", std::string("\0eng\0note", 9)}, {"APIC", std::string("\0image/png\0\3\0\x89PNG", 16)}});
    writeFile(root + "/all/three-tags.mp3", v24 + readFile(data + "/sine-1s.mp3") +
                                                ape(2000, {{"Title", "Ape"}, {"Cover", std::string("\x01\x02", 2), 2}}, true) +
                                                id3v1("One", "Artist", "Album", "2001", "c", 4, 17));
    return files + 1;
}

TEST(Valgrind, StoringRunHasNoMemoryErrorAndLosesNothing)
{
    if (e2e::kSanitized) GTEST_SKIP() << "the sanitizer build does not run under valgrind";
    if (::access("/usr/bin/valgrind", X_OK) != 0) GTEST_SKIP() << "valgrind is not installed";
    testsupport::TempDir tree;
    const size_t files = makeTree(tree.path());
    const std::string suppressions = std::string(SONARCAT_SOURCE_DIR) + "/tests/valgrind/glibc.supp";

    e2e::SQLiteCatalogue sqlite;
    e2e::PostgresCatalogue postgres;
    for (e2e::Catalogue* catalogue : std::initializer_list<e2e::Catalogue*>{&sqlite, &postgres}) {
        const std::string database = catalogue->create();
        if (database.empty()) continue;
        const std::vector<std::string> args = {"--verbose", "--database=" + database, tree.path()};
        std::vector<std::string> argv = {"/usr/bin/valgrind", "--leak-check=full", "--errors-for-leak-kinds=definite",
                                         "--error-exitcode=99", "--suppressions=" + suppressions, SONARCAT_BINARY};
        argv.insert(argv.end(), args.begin(), args.end());
        auto r = testsupport::runProgram(argv, testsupport::plainEnvironment(), 600);
        ASSERT_FALSE(r.timedOut);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.err.find("ERROR SUMMARY: 0 errors from 0 contexts"), std::string::npos) << r.err;
        EXPECT_TRUE(r.err.find("definitely lost: 0 bytes in 0 blocks") != std::string::npos ||
                    r.err.find("All heap blocks were freed") != std::string::npos)
            << r.err;
        EXPECT_EQ(e2e::occurrences(r.out, "\nFILE["), files) << r.out;
        EXPECT_EQ(catalogue->countOf("STOR_FILE"), std::to_string(files));
        EXPECT_EQ(catalogue->countOf("APE_ITEM"), "2");

        // valgrind replaces the allocator, so the program's own leak report
        // is read from the same run without it.
        auto plain = e2e::sonarcat(args);
        EXPECT_NE(plain.err.find(e2e::kCleanLeakReport), std::string::npos) << plain.err;
        EXPECT_EQ(e2e::occurrences(plain.out, "\nFILE["), files);
    }
}

} // namespace
