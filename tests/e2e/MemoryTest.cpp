// Memory: a storing run of every kind of tag under valgrind's memcheck on each engine (no invalid
// access, no use of undefined bytes, nothing definitely lost, and the program's own leak report empty),
// and a peak that does not grow with the library: 1,000 files against 100 (long runs: 100,000 against
// 1,000), in the census, the normal mode, storing on each engine and an update with nothing to read.
#include <gtest/gtest.h>

#include "support/Catalogue.h"

using namespace testsupport;

namespace {

// Rows that repeat an earlier row's driver module or client library are watched in long runs only.
bool watchedInLongRunsOnly(const std::string& engine)
{
    return !longRun() && (engine == "InterBase" || engine == "ODBC SQLite3" || engine == "ODBC MariaDB");
}

class ScaledValgrind : public ::testing::TestWithParam<std::string> {};

// Every sample, with the helper processes that probe them under memcheck too, on SQLite; on the others one
// file that fills the seven tables, on one core.
TEST_P(ScaledValgrind, AStoringRunHasNoErrorAndLosesNothing)
{
    if (kSanitized) GTEST_SKIP() << "the sanitizer build does not run under valgrind";
    if (watchedInLongRunsOnly(GetParam())) GTEST_SKIP() << "an earlier row runs the same driver: long runs only";
    Catalogue catalogue(GetParam());
    if (catalogue.database().empty()) GTEST_SKIP() << catalogue.unreachable();
    const bool all = GetParam() == "SQLite";
    TempDir dir;
    const Tree tree(dir / "tree");
    for (const Sample& s : samples())
        if (all || s.name == "built-v24ext-ape2-v1") tree.file(s.name + ".mp3", s.bytes);
    tree.file("cover.png", readFile(dataFile("tagged/cover.png")));
    const std::vector<std::string> args = {"--verbose", "--database=" + catalogue.database(), tree.root()};
    std::vector<std::string> argv = {"/usr/bin/valgrind", "--leak-check=full", "--errors-for-leak-kinds=definite", "--error-exitcode=99"};
    argv.insert(argv.end(), {"--suppressions=" SONARCAT_SOURCE_DIR "/tests/valgrind/glibc.supp", SONARCAT_BINARY});
    if (!all) argv.insert(argv.begin(), {"/usr/bin/taskset", "-c", "0"});
    else argv.insert(argv.begin() + 1, "--trace-children=yes");
    argv.insert(argv.end(), args.begin(), args.end());
    const Result r = run(argv, {}, 600);
    EXPECT_EQ(r.status, 0) << r.err;
    // One summary for each process, the helpers' too.
    EXPECT_EQ(occurrences(r.err, "ERROR SUMMARY: 0 errors from 0 contexts"), occurrences(r.err, "ERROR SUMMARY: ")) << r.err;
    EXPECT_GE(occurrences(r.err, "ERROR SUMMARY: "), all ? 2u : 1u) << r.err;
    EXPECT_EQ(catalogue.count("STOR_FILE"), std::to_string(all ? samples().size() + 1 : 2));
    // valgrind replaces the allocator: the program's own report comes from a run without it.
    EXPECT_FALSE(has(sonarcat(args).err, "Memory leak"));
}

INSTANTIATE_TEST_SUITE_P(Engines, ScaledValgrind, ::testing::ValuesIn(engineNames()), testName);

class ScaledMemory : public ::testing::TestWithParam<std::string> {};

TEST_P(ScaledMemory, PeakDoesNotGrowWithTheTree)
{
    if (kSanitized) GTEST_SKIP() << "the sanitizer's quarantine grows with the run, not the program";
    const std::string mode = GetParam();
    if (watchedInLongRunsOnly(mode)) GTEST_SKIP() << "an earlier row runs the same driver: long runs only";
    const bool update = mode == "update", storing = mode != "census" && mode != "normal";
    const size_t sizes[2] = {longRun() ? 1000u : 100u, longRun() ? 100000u : 1000u};
    TempDir top;
    const std::string content = id3v2(3, {{"TIT2", textBody("Title")}, {"COMM", std::string("\0eng\0a comment", 15)}}) +
                                readFile(dataFile("sine-1s.mp3")) + ape(2000, {{"Title", "Ape"}, {"Year", "2001"}}, true) +
                                id3v1("Title", "Artist", "Album", "2001", "", 1, 17);
    std::string trees[2];
    for (int t = 0; t < 2; ++t) { // a hundred hard links to one file in each directory
        const Tree tree(top / std::to_string(sizes[t]));
        for (size_t i = 0; i < sizes[t]; ++i) {
            const std::string dir = "d" + std::to_string(i / 100) + "/";
            i % 100 == 0 ? tree.file(dir + "f0.mp3", content)
                         : tree.make(dir + "f" + std::to_string(i % 100) + ".mp3", tree / (dir + "f0.mp3"), 'h');
        }
        trees[t] = tree.root();
    }
    long peak[2] = {0, 0};
    // What varies from run to run whatever the tree: an SQLite catalogue's page cache (2,000 KiB) fills
    // as the file grows; the probing threads' copies of MediaInfo are paged in as they run (one more or less).
    long slack = mode == "census" ? 0 : 4000;
    for (int t = 0; t < 2; ++t) {
        std::vector<std::string> argv = {"/usr/bin/time", "-f", "%M", "-o", top / "peak", SONARCAT_BINARY, trees[t]}; // from a small parent
        Catalogue catalogue(storing && !update ? mode : "SQLite");
        if (catalogue.database().empty()) GTEST_SKIP() << catalogue.unreachable();
        if (mode == "census") argv.push_back("--summary");
        if (storing) argv.push_back("--database=" + catalogue.database());
        if (update) { // of a catalogue that holds the tree: nothing to read
            sonarcat({"--database=" + catalogue.database(), trees[t]}, {}, 3600);
            argv.push_back("--update");
        }
        if (t == 0 && storing && !catalogue.engine().variable) slack += 2000;
        const Result r = run(argv, {}, 3600);
        EXPECT_FALSE(has(r.err, "Memory")) << r.err.substr(0, 2000);
        EXPECT_EQ(occurrences(r.out, "\nFILE["), mode == "census" || update ? 0 : sizes[t]);
        EXPECT_EQ(catalogue.count("APE_ITEM"), std::to_string(storing ? 2 * sizes[t] : 0));
        peak[t] = std::atol(readFile(top / "peak").c_str());
    }
    std::printf("%-10s peak resident memory: %ld KB at %zu files, %ld KB at %zu files\n", mode.c_str(), peak[0], sizes[0], peak[1],
                sizes[1]);
    EXPECT_LE(peak[1], peak[0] + peak[0] / 10 + slack) << "the larger tree needs more than 10% above the smaller";
}

INSTANTIATE_TEST_SUITE_P(Modes, ScaledMemory, ::testing::ValuesIn(engineNames({"census", "normal", "update"})), testName);

} // namespace
