// Faults while storing, again and again on a bigger tree: runs killed at many
// depths into one catalogue on each database, the server stopped under run
// after run, and an SQLite file whose size limit is reached while its
// write-ahead log is copied into it.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <unistd.h>

#include "e2e/StoringFaults.h"

using faults::Catalogued;

namespace {

// 2,000 files; a fourth of them with 200 frames and 200 items.
constexpr size_t kDirs = 40, kPerDir = 50, kHeavy = 200;
constexpr int kRounds = 10;

faults::Tree makeTree(const testsupport::TempDir& dir) { return faults::makeTree(dir / "tree", kDirs, kPerDir, kHeavy); }

// How many more files a round lets the run store before its fault.
size_t depth(std::mt19937& random) { return 1 + random() % (kDirs * kPerDir * 3 / 4); }

class KilledAgain : public ::testing::TestWithParam<std::string> {};

TEST_P(KilledAgain, RunAfterRunNoFileIsStoredInPart)
{
    auto reference = e2e::makeCatalogue(GetParam()), catalogue = e2e::makeCatalogue(GetParam());
    const std::string referenceDatabase = reference->create(), database = catalogue->create();
    if (database.empty()) GTEST_SKIP() << "no PostgreSQL server: set SONARCAT_TEST_POSTGRES (.ci/run does)";
    testsupport::TempDir dir;
    const faults::Tree tree = makeTree(dir);
    const Catalogued clean = faults::cleanRun(*reference, referenceDatabase, tree);
    std::mt19937 random(7);
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const size_t before = faults::storedFiles(*catalogue);
        faults::killARun(*catalogue, database, tree, clean, round % 2 ? SIGINT : SIGKILL, before + depth(random));
        if (HasFailure()) break;
    }
    faults::expectNextRunStoresAll(*catalogue, database, tree, clean);
}

INSTANTIATE_TEST_SUITE_P(Databases, KilledAgain, ::testing::Values("SQLite", "PostgreSQL"));

TEST(ServerStoppedAgain, RunAfterRunNoFileIsStoredInPart)
{
    if (e2e::postgresSettings().empty()) GTEST_SKIP() << "no PostgreSQL environment: set SONARCAT_TEST_POSTGRES (.ci/run does)";
    if (::geteuid() != 0) GTEST_SKIP() << "a server of the test's own is started as its own user: needs root";
    faults::OnOwnServer own(kDirs, kPerDir, kHeavy);
    ASSERT_FALSE(own.database.empty()) << own.server.error();
    std::mt19937 random(11);
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const size_t before = faults::storedFiles(own.catalogue);
        faults::stopTheServerUnderARun(own.server, own.catalogue, own.database, own.tree, own.clean, round % 2 ? "immediate" : "fast",
                                       round % 4 < 2 ? faults::Where::InAFile : faults::Where::BetweenFiles, before + depth(random));
        if (HasFailure()) break;
    }
    faults::expectNextRunStoresAll(own.catalogue, own.database, own.tree, own.clean);
}

// The limit lies above what the write-ahead log grows to before it is copied
// into the database file: the copy is what reaches it first.
TEST(DiskFullAgain, TheLimitReachedWhileTheLogIsCopied)
{
    testsupport::TempDir dir;
    const faults::Tree tree = makeTree(dir);
    e2e::SQLiteCatalogue reference;
    const Catalogued clean = faults::cleanRun(reference, reference.create(), tree);
    // 1000 pages of 4 KiB and their frame headers, and the transaction that crosses them.
    constexpr uintmax_t kLogPeak = 5 << 20;
    const uintmax_t fullSize = std::filesystem::file_size(reference.file());
    ASSERT_GT(fullSize, 2 * kLogPeak) << "the tree is too small to fill more than the log";
    faults::expectFilesBeyondTheLimitFailAlone(tree, clean, (kLogPeak + fullSize) / 2);
}

} // namespace
