// Peak memory does not grow with the library: a tree of 100,000 files runs in
// the same peak resident memory as one of 1,000, in the census, in the normal
// mode and while storing on each database. The files carry all three tag
// kinds; a directory holds a hundred hard links to one of them.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "e2e/Catalogue.h"
#include "e2e/Program.h"
#include "support/TagBuilder.h"

using namespace tagfix;

namespace {

constexpr size_t kPerDirectory = 100;

std::string makeTree(const testsupport::TempDir& top, size_t files)
{
    const std::string frames = id3v2(3, {{"TIT2", textBody("Title")}, {"TPE1", textBody("Artist")}, {"TALB", textBody("Album")},
                                         {"COMM", std::string("\0eng\0a comment", 15)}});
    const std::string content = frames + readFile(e2e::sample("sine-1s.mp3")) + ape(2000, {{"Title", "Ape"}, {"Year", "2001"}}, true) +
                                id3v1("Title", "Artist", "Album", "2001", "", 1, 17);
    const std::string root = top / ("tree-" + std::to_string(files));
    ::mkdir(root.c_str(), 0755);
    char name[64];
    std::string first;
    for (size_t i = 0; i < files; ++i) {
        if (i % kPerDirectory == 0) {
            std::snprintf(name, sizeof name, "/d%05zu", i / kPerDirectory);
            ::mkdir((root + name).c_str(), 0755);
        }
        std::snprintf(name, sizeof name, "/d%05zu/f%03zu.mp3", i / kPerDirectory, i % kPerDirectory);
        if (i % kPerDirectory == 0) {
            first = root + name;
            writeFile(first, content);
        } else if (::link(first.c_str(), (root + name).c_str()) != 0) {
            return "";
        }
    }
    return root;
}

enum class Store { none, sqlite, postgres };

struct Mode {
    const char* name;
    std::vector<std::string> args;
    Store store; // into a fresh catalogue of this kind for each tree
};

TEST(Memory, PeakDoesNotGrowWithTheTree)
{
    if (e2e::kSanitized) GTEST_SKIP() << "the sanitizer's quarantine grows with the run, not the program";
    if (::access("/usr/bin/time", X_OK) != 0) GTEST_SKIP() << "time(1) is not installed";
    testsupport::TempDir top;
    const std::string small = makeTree(top, 1000);
    const std::string large = makeTree(top, 100000);
    ASSERT_FALSE(small.empty() || large.empty()) << "cannot make the trees";

    const std::vector<Mode> modes = {
        {"census", {"--summary"}, Store::none},
        {"normal", {}, Store::none},
        {"SQLite", {}, Store::sqlite},
        {"PostgreSQL", {}, Store::postgres},
    };
    for (const Mode& mode : modes) {
        long peak[2] = {0, 0};
        const std::string* trees[2] = {&small, &large};
        const size_t sizes[2] = {1000, 100000};
        bool skipped = false;
        for (int t = 0; t < 2; ++t) {
            std::vector<std::string> args = mode.args;
            std::unique_ptr<e2e::Catalogue> catalogue;
            if (mode.store == Store::sqlite) catalogue = std::make_unique<e2e::SQLiteCatalogue>();
            if (mode.store == Store::postgres) catalogue = std::make_unique<e2e::PostgresCatalogue>();
            if (catalogue) {
                const std::string database = catalogue->create();
                if (database.empty()) {
                    skipped = true;
                    break;
                }
                args.push_back("--database=" + database);
            }
            args.push_back(*trees[t]);
            // A child of this test inherits the test's own peak in its
            // rusage; time(1) forks the program from a small process.
            const std::string peakFile = top / "peak";
            std::vector<std::string> argv = {"/usr/bin/time", "-f", "%M", "-o", peakFile, SONARCAT_BINARY};
            argv.insert(argv.end(), args.begin(), args.end());
            auto r = testsupport::runProgram(argv, testsupport::plainEnvironment(), 3600);
            ASSERT_FALSE(r.timedOut) << mode.name;
            EXPECT_NE(r.err.find(e2e::kCleanLeakReport), std::string::npos) << mode.name << r.err.substr(0, 2000);
            if (mode.args.empty()) {
                EXPECT_EQ(e2e::occurrences(r.out, "\nFILE["), sizes[t]) << mode.name;
            }
            if (catalogue) {
                EXPECT_EQ(catalogue->countOf("STOR_FILE"), std::to_string(sizes[t])) << mode.name;
                EXPECT_EQ(catalogue->countOf("APE_ITEM"), std::to_string(2 * sizes[t])) << mode.name;
            }
            peak[t] = std::atol(readFile(peakFile).c_str());
        }
        if (skipped) continue;
        std::printf("%-10s peak resident memory: %ld KB at 1,000 files, %ld KB at 100,000 files\n", mode.name, peak[0], peak[1]);
        EXPECT_GT(peak[0], 0);
        EXPECT_LE(peak[1], peak[0] + peak[0] / 10) << mode.name << ": 100,000 files need more than 10% above 1,000";
    }
}

} // namespace
