// Faults while storing: the PostgreSQL server stopped under a run, the
// program killed in the middle of a file, an SQLite file that cannot grow.
// After each, every stored file has all of its rows, no row is left without
// its file or directory, the program says what happened, and the next run
// stores the whole tree with new ids.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <ostream>
#include <tuple>
#include <unistd.h>

#include "e2e/StoringFaults.h"

using faults::Catalogued;

namespace {

// 300 files; a fourth of them with 150 frames and 150 items.
constexpr size_t kDirs = 10, kPerDir = 30, kHeavy = 150;
// Files stored before the fault.
constexpr size_t kFirst = 20;

faults::Tree makeTree(const testsupport::TempDir& dir) { return faults::makeTree(dir / "tree", kDirs, kPerDir, kHeavy); }

struct Shutdown {
    const char* mode; // pg_ctl -m
    faults::Where where;
};

void PrintTo(const Shutdown& s, std::ostream* os) { *os << s.mode << (s.where == faults::Where::InAFile ? " in a file" : " between files"); }

class ServerStopped : public ::testing::TestWithParam<Shutdown> {};

TEST_P(ServerStopped, InTheMiddleOfARunStopsTheWalkWithTheCause)
{
    if (e2e::postgresSettings().empty()) GTEST_SKIP() << "no PostgreSQL environment: set SONARCAT_TEST_POSTGRES (.ci/run does)";
    if (::geteuid() != 0) GTEST_SKIP() << "a server of the test's own is started as its own user: needs root";
    faults::OnOwnServer own(kDirs, kPerDir, kHeavy);
    ASSERT_FALSE(own.database.empty()) << own.server.error();

    faults::stopTheServerUnderARun(own.server, own.catalogue, own.database, own.tree, own.clean, GetParam().mode, GetParam().where, kFirst);
    faults::expectNextRunStoresAll(own.catalogue, own.database, own.tree, own.clean);
}

// A fast shutdown ends the server's connections with a message, an
// immediate one kills the server at once. Inside a file the run learns it
// from the answers to its rows, between files from the next file's.
INSTANTIATE_TEST_SUITE_P(Shutdowns, ServerStopped,
                         ::testing::Values(Shutdown{"fast", faults::Where::InAFile}, Shutdown{"immediate", faults::Where::BetweenFiles}),
                         [](const auto& info) { return std::string(info.param.mode) + (info.param.where == faults::Where::InAFile ? "_InAFile" : "_BetweenFiles"); });

class Killed : public ::testing::TestWithParam<std::tuple<std::string, int>> {};

TEST_P(Killed, InTheMiddleOfAFileLeavesNothingOfIt)
{
    const auto& [kind, signal] = GetParam();
    auto reference = e2e::makeCatalogue(kind), catalogue = e2e::makeCatalogue(kind);
    const std::string referenceDatabase = reference->create(), database = catalogue->create();
    if (database.empty()) GTEST_SKIP() << "no PostgreSQL server: set SONARCAT_TEST_POSTGRES (.ci/run does)";
    testsupport::TempDir dir;
    const faults::Tree tree = makeTree(dir);
    const Catalogued clean = faults::cleanRun(*reference, referenceDatabase, tree);

    faults::killARun(*catalogue, database, tree, clean, signal, kFirst);
    faults::expectNextRunStoresAll(*catalogue, database, tree, clean);
}

INSTANTIATE_TEST_SUITE_P(Signals, Killed, ::testing::Combine(::testing::Values("SQLite", "PostgreSQL"), ::testing::Values(SIGKILL, SIGINT)),
                         [](const auto& info) {
                             return std::get<0>(info.param) + (std::get<1>(info.param) == SIGKILL ? "_SIGKILL" : "_SIGINT");
                         });

// A database file bounded in size: the first file that does not fit fails,
// and so does every one after it, each on its own; the walk goes to the end.
TEST(DiskFull, EveryFileThatDoesNotFitFailsWholeAndTheWalkGoesOn)
{
    testsupport::TempDir dir;
    const faults::Tree tree = makeTree(dir);
    e2e::SQLiteCatalogue reference;
    const Catalogued clean = faults::cleanRun(reference, reference.create(), tree);
    // The write-ahead log reaches a fourth of the full size long before it is
    // copied into the database file: its growth fails.
    faults::expectFilesBeyondTheLimitFailAlone(tree, clean, std::filesystem::file_size(reference.file()) / 4);
}

} // namespace
