// Memory: a storing run of every kind of tag under valgrind's memcheck on
// every engine (no invalid access, no use of undefined bytes, nothing
// definitely lost, and the program's own leak report empty), and a peak that
// does not grow with the library: 1,000 files against 100 (long runs: 100,000
// against 1,000), in the census, the normal mode and storing on every engine.
#include <gtest/gtest.h>

#include "support/Catalogue.h"

using namespace testsupport;

namespace {


TEST(Memory, AStoringRunUnderValgrindHasNoErrorAndLosesNothing)
{
    if (kSanitized) GTEST_SKIP() << "the sanitizer build does not run under valgrind";
    TempDir dir;
    const Tree tree(dir / "tree");
    for (const Sample& s : samples()) tree.file(s.name + ".mp3", s.bytes);
    tree.file("cover.png", readFile(dataFile("tagged/cover.png")));
    for (const std::string& engine : engineNames()) {
        Catalogue catalogue(engine);
        if (catalogue.database().empty()) continue;
        const std::vector<std::string> args = {"--verbose", "--database=" + catalogue.database(), tree.root()};
        std::vector<std::string> argv = {"/usr/bin/valgrind", "--leak-check=full", "--errors-for-leak-kinds=definite", "--error-exitcode=99",
                                         "--suppressions=" SONARCAT_SOURCE_DIR "/tests/valgrind/glibc.supp", SONARCAT_BINARY};
        if (engine != "SQLite") argv.insert(argv.begin(), {"/usr/bin/taskset", "-c", "0"}); // the worker threads once are enough
        argv.insert(argv.end(), args.begin(), args.end());
        const Result r = run(argv, {}, 600);
        EXPECT_EQ(r.status, 0) << engine << r.err;
        EXPECT_NE(r.err.find("ERROR SUMMARY: 0 errors from 0 contexts"), std::string::npos) << r.err;
        EXPECT_EQ(catalogue.count("STOR_FILE"), std::to_string(samples().size() + 1)) << engine;
        // valgrind replaces the allocator: the program's own report comes from a run without it.
        EXPECT_EQ(sonarcat(args).err.find("Memory leak"), std::string::npos) << engine;
    }
}

TEST(ScaledMemory, PeakDoesNotGrowWithTheTree)
{
    if (kSanitized) GTEST_SKIP() << "the sanitizer's quarantine grows with the run, not the program";
    const size_t sizes[2] = {longRun() ? 1000u : 100u, longRun() ? 100000u : 1000u};
    TempDir top;
    const std::string content = id3v2(3, {{"TIT2", textBody("Title")}, {"COMM", std::string("\0eng\0a comment", 15)}}) + readFile(dataFile("sine-1s.mp3")) +
                                ape(2000, {{"Title", "Ape"}, {"Year", "2001"}}, true) + id3v1("Title", "Artist", "Album", "2001", "", 1, 17);
    std::string trees[2];
    for (int t = 0; t < 2; ++t) { // a hundred hard links to one file in each directory
        const Tree tree(top / std::to_string(sizes[t]));
        for (size_t i = 0; i < sizes[t]; ++i) {
            const std::string dir = "d" + std::to_string(i / 100) + "/";
            if (i % 100 == 0) tree.file(dir + "f0.mp3", content);
            else tree.make(dir + "f" + std::to_string(i % 100) + ".mp3", tree / (dir + "f0.mp3"), 'h');
        }
        trees[t] = tree.root();
    }
    std::vector<std::string> modes = {"census", "normal"};
    for (const std::string& engine : engineNames()) modes.push_back(engine);
    for (const std::string& mode : modes) {
        long peak[2] = {0, 0};
        // What varies from run to run whatever the tree: an SQLite catalogue's page cache (2,000 KiB) fills
        // as the file grows; the probing threads' copies of MediaInfo are paged in as they run (one more or less).
        long slack = mode == "census" ? 0 : 4000;
        for (int t = 0; t < 2; ++t) {
            std::vector<std::string> argv = {"/usr/bin/time", "-f", "%M", "-o", top / "peak", SONARCAT_BINARY, trees[t]}; // from a small parent
            Catalogue catalogue(mode == "census" || mode == "normal" ? "SQLite" : mode);
            if (mode == "census") argv.push_back("--summary");
            if (mode != "census" && mode != "normal") argv.push_back("--database=" + catalogue.database());
            if (catalogue.database().empty()) break;
            if (t == 0 && argv.back().starts_with("--database") && !catalogue.engine().variable) slack += 2000;
            const Result r = run(argv, {}, 3600);
            EXPECT_EQ(r.err.find("Memory"), std::string::npos) << mode << r.err.substr(0, 2000);
            EXPECT_EQ(occurrences(r.out, "\nFILE["), mode == "census" ? 0 : sizes[t]) << mode;
            EXPECT_EQ(catalogue.count("APE_ITEM"), std::to_string(mode == "census" || mode == "normal" ? 0 : 2 * sizes[t])) << mode;
            peak[t] = std::atol(readFile(top / "peak").c_str());
        }
        if (!peak[1]) continue;
        std::printf("%-10s peak resident memory: %ld KB at %zu files, %ld KB at %zu files\n", mode.c_str(), peak[0], sizes[0], peak[1], sizes[1]);
        EXPECT_LE(peak[1], peak[0] + peak[0] / 10 + slack) << mode << ": the larger tree needs more than 10% above the smaller";
    }
}

} // namespace
