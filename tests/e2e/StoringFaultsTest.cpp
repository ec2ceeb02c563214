// Faults while storing: the database server stopped under a run, the program killed
// in the middle of a file, an SQLite file that cannot grow, an output that fails.
// After each, every stored file holds all of its rows and no row lacks its file or
// directory, the program says what happened, and the next run stores the whole tree
// again under new ids. Long runs repeat each fault ten times on 2,000 files.
#include <gtest/gtest.h>

#include <fcntl.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <set>

#include "support/Catalogue.h"

using namespace testsupport;

namespace {

struct Scale {
    size_t dirs, perDir, heavy; // every fourth file carries `heavy` frames and as many items
    int rounds;
};
Scale scale() { return longRun() ? Scale{40, 50, 200, 10} : Scale{4, 30, 150, 1}; }

// Files with from no rows to hundreds, every value naming its file, and one in the middle with 3,000. The first file of an even
// directory writes a line on standard error while it is stored ("Title is NULL"), that of an odd one while its tags are read (traces).
std::vector<std::string> makeTree(const Tree& tree, const Scale& s)
{
    const std::string audio = readFile(dataFile("sine-1s.mp3"));
    std::vector<std::string> paths;
    for (size_t i = 0; i < s.dirs * s.perDir; ++i) {
        const std::string tag = "file " + std::to_string(i), f = std::to_string(i % s.perDir),
                          dir = "d" + std::to_string(i / s.perDir) + "/";
        std::vector<Frame> frames;
        std::vector<ApeItem> items;
        for (size_t j = 0; i % 4 == 0 && j < s.heavy; ++j) {
            const std::string n = std::to_string(j);
            frames.push_back(j % 2 ? Frame{"COMM", std::string("\0eng", 4) + n + '\0' + tag}
                                   : Frame{"PRIV", "owner" + n + '\0' + std::string(j % 90 + 1, 'a')});
            items.push_back({"Key" + n, tag + " item " + n});
        }
        const std::string bytes[] = {id3v2(3, frames, 16) + audio + ape(2000, items, true) + id3v1(tag, "Artist", "", "2001", "", 3, 17),
                                     id3v2(4, {{"TIT2", textBody(tag)}}) + audio + id3v1(tag),
                                     audio + ape(1000, {{"Title", tag}}, false),
                                     audio,
                                     id3v2(3, {{"TIT2", textBody(tag)}}) + audio + ape(1000, {{"Title", tag}}, false) +
                                         id3v1(""),                                              // Title is NULL
                                     id3v2(3, {{"TIT2", textBody(tag)}, {"TPE1", ""}}) + audio}; // invalid frames: traces
        const size_t kind = i % s.perDir == 0 ? 4 + i / s.perDir % 2 : i % 4;
        paths.push_back(tree.file(dir + (i % 10 == 3 ? "notes" + f + ".txt" : "f" + f + ".mp3"), bytes[kind]));
    }
    const std::string middle = "d" + std::to_string(s.dirs / 2 - 1) + "/z.mp3"; // past where any pause is asked for
    paths.push_back(
        tree.file(middle, id3v2(3, std::vector<Frame>(3000, {"PRIV", std::string("owner\0", 6) + std::string(200, 'z')})) + audio));
    return paths;
}

// The stored files in id order: path and the number of rows in each tag table.
struct Stored {
    std::vector<std::pair<long long, std::string>> files;
    long long lastDir = 0, orphans = 0; // orphans: rows without their file, directory or tag row; directory rows without a file
};

Stored read(const Catalogue& c)
{
    Stored s;
    std::string counts;
    for (const char* t : {"ID3V1", "ID3V2", "ID3V2_FRAME", "APE", "APE_ITEM"})
        counts += std::string(", (SELECT COUNT(*) FROM ") + t + " t WHERE t.FILE_ID = f.FILE_ID)";
    for (const Row& r : c.rows("SELECT f.FILE_ID, d.PATH, f.NAME" + counts +
                               " FROM STOR_FILE f JOIN STOR_DIR d ON d.DIR_ID = f.DIR_ID ORDER BY f.FILE_ID"))
        s.files.emplace_back(std::stoll(r[0]), r[1] + r[2] + " " + r[3] + " " + r[4] + " " + r[5] + " " + r[6] + " " + r[7]);
    s.lastDir = std::stoll(c.rows("SELECT COALESCE(MAX(DIR_ID), 0) FROM STOR_DIR").at(0).at(0));
    for (const char* q :
         {"STOR_FILE WHERE DIR_ID NOT IN (SELECT DIR_ID FROM STOR_DIR)", "STOR_DIR WHERE DIR_ID NOT IN (SELECT DIR_ID FROM STOR_FILE)",
          "ID3V1 WHERE FILE_ID NOT IN (SELECT FILE_ID FROM STOR_FILE)", "ID3V2 WHERE FILE_ID NOT IN (SELECT FILE_ID FROM STOR_FILE)",
          "ID3V2_FRAME WHERE FILE_ID NOT IN (SELECT FILE_ID FROM ID3V2)", "APE WHERE FILE_ID NOT IN (SELECT FILE_ID FROM STOR_FILE)",
          "APE_ITEM WHERE FILE_ID NOT IN (SELECT FILE_ID FROM APE)"})
        s.orphans += std::stoll(c.count(q));
    return s;
}

// Every stored file is whole: it holds the rows that a clean run stored for its path.
void expectWhole(const Stored& got, const std::set<std::string>& clean)
{
    EXPECT_EQ(got.orphans, 0);
    int wrong = 0;
    for (const auto& [id, file] : got.files)
        if (!clean.count(file) && ++wrong <= 10) ADD_FAILURE() << "FILE_ID " << id << " is stored in part: " << file;
}

// A run without the fault stores every file once more, whole, above the earlier ids, and changes nothing earlier.
void expectNextRunStoresAll(const Catalogue& c, const std::vector<std::string>& paths, const std::set<std::string>& clean,
                            const std::string& top)
{
    const Stored before = read(c);
    const Result r = sonarcat({"--database=" + c.database(), top}, {}, 600);
    EXPECT_FALSE(has(r.err, "Exception")) << r.err;
    const Stored after = read(c);
    expectWhole(after, clean);
    ASSERT_EQ(after.files.size(), before.files.size() + paths.size());
    EXPECT_TRUE(std::equal(before.files.begin(), before.files.end(), after.files.begin())) << "earlier files changed";
    std::multiset<std::string> stored, expected(paths.begin(), paths.end());
    for (size_t i = before.files.size(); i < after.files.size(); ++i)
        stored.insert(after.files[i].second.substr(0, after.files[i].second.find(' ')));
    EXPECT_EQ(stored, expected);
    EXPECT_GT(after.lastDir, before.lastDir);
}

// What a look at a paused run finds: the files committed, and whether the run holds a transaction that wrote rows.
std::pair<size_t, bool> look(const Catalogue& c)
{
    const Result pending = run({"/bin/sh", "-c", c.fill(c.engine().pending)}, {environment("C.UTF-8")});
    return {std::stoul(c.count("STOR_FILE")), std::atoi(pending.out.c_str()) > 0};
}

bool closes(const std::string& out)
{
    return out.rfind(std::string(80, '=') + "\nFinish [") == out.rfind(std::string(80, '=')) && out.ends_with("]\n");
}

// A tree, and the rows of a clean run of it (the same on every engine: in SQLite).
struct Stage {
    explicit Stage(const std::string& engine, const std::string& settings = "")
        : catalogue(engine, Catalogue::WithTables, settings), reference("SQLite")
    {
        if (catalogue.database().empty()) return;
        for (const std::string& sql : catalogue.engine().slow) catalogue.rows(sql);
        sonarcat({"--database=" + reference.database(), tree.root()}, {}, 600);
        for (const auto& [id, file] : read(reference).files) clean.insert(file);
        EXPECT_EQ(clean.size(), paths.size()) << "the clean run did not store the whole tree";
    }
    // Starts a run that stores up to half the tree more, then pauses inside a file's transaction or between files, as asked
    // (where: `paused`). It moves only between looks: up to there, half the time the files to come take at the pace seen so far;
    // then a little at a time. A run that ends first or is not seen where asked in 400 looks is followed by up to two more.
    size_t pause(bool inAFile)
    {
        using namespace std::chrono_literals;
        for (int tries = 0; tries < 3; ++tries, run.reset()) { // a run not paused is ended before the next look
            const size_t before = read(catalogue).files.size(), first = before + 1 + random() % std::max<size_t>(paths.size() / 2, 1);
            run.emplace(std::vector<std::string>{SONARCAT_BINARY, "--database=" + catalogue.database(), tree.root()});
            std::chrono::microseconds slice = 500us, ran = 0us;
            size_t start = 0, failed = 0; // looks failed in a row
            for (int attempt = 0; attempt < 400 && run->pause(); ++attempt) {
                try {
                    paused = look(catalogue), failed = 0;
                } catch (const std::runtime_error&) { // paused holding a lock the look needs: go on a little
                    if (++failed < 5) {
                        run->resume(), std::this_thread::sleep_for(slice);
                        continue;
                    }
                    throw;
                }
                const auto [at, inside] = paused;
                if (at >= first && inside == inAFile) return before;
                if (attempt == 0) start = at;
                if (at >= first) slice = std::chrono::microseconds(200 + attempt * 397 % 3000);
                else if (at > start)
                    slice = std::clamp(ran * static_cast<long>(first - at) / static_cast<long>(2 * (at - start)), 200us, 50000us);
                else slice = slice * 3 / 2; // not started yet
                run->resume(), std::this_thread::sleep_for(slice), ran += slice;
            }
        }
        return 0;
    }
    Catalogue catalogue, reference;
    TempDir dir;
    Tree tree{dir / "tree"};
    std::vector<std::string> paths = makeTree(tree, scale());
    std::set<std::string> clean;
    std::mt19937 random{7};
    std::optional<Program> run; // the paused run, none when three were not paused where asked
    std::pair<size_t, bool> paused;
};

class ScaledKilled : public ::testing::TestWithParam<std::string> {};

// Killed by SIGKILL or by SIGINT, in turn: nothing of the file in hand stays; the files committed
// before it do, whole (paused in its commit, the file in hand may be committed already).
TEST_P(ScaledKilled, InTheMiddleOfAFileLeavesNothingOfIt)
{
    Stage stage(GetParam());
    if (stage.catalogue.database().empty()) GTEST_SKIP() << stage.catalogue.unreachable();
    for (int round = 0; round < 2 * scale().rounds && !HasFailure(); ++round) {
        const int signal = round % 2 ? SIGINT : SIGKILL;
        SCOPED_TRACE(strsignal(signal));
        stage.pause(true);
        ASSERT_TRUE(stage.run) << "no run was seen inside a file's transaction";
        stage.run->signal(signal), stage.run->resume();
        const Result end = stage.run->finish();
        for (int wait = 0; wait < 100 && look(stage.catalogue).second; ++wait)
            std::this_thread::sleep_for(std::chrono::milliseconds(100)); // the server ends it
        const size_t paused = stage.paused.first;
        EXPECT_EQ(end.signal, signal) << end.err;
        const Stored after = read(stage.catalogue);
        EXPECT_GE(after.files.size(), paused);
        EXPECT_LE(after.files.size(), paused + 1);
        expectWhole(after, stage.clean);
    }
    expectNextRunStoresAll(stage.catalogue, stage.paths, stage.clean, stage.tree.root());
}

INSTANTIATE_TEST_SUITE_P(Engines, ScaledKilled, ::testing::ValuesIn(engineNames()), testName);

// A server of the test's own, which it may stop and start again: the .ci
// script named after the engine's variable (SONARCAT_TEST_POSTGRES: .ci/postgres).
struct OwnServer {
    explicit OwnServer(const Engine& engine)
        : script(SONARCAT_SOURCE_DIR "/.ci/" + lowerCase(std::string(engine.variable).substr(std::strlen("SONARCAT_TEST_")))),
          started(control("start")), settings(started.status ? "" : started.out.substr(0, started.out.find('\n')))
    {}
    ~OwnServer() { control("stop"); }
    Result control(const std::string& action, const std::string& mode = "")
    {
        ::chmod(home.path().c_str(), 0755);
        return run({"/bin/bash", script, action, home / "server", mode}, {environment("C.UTF-8")}, 120);
    }
    static std::string lowerCase(std::string s) { return std::transform(s.begin(), s.end(), s.begin(), ::tolower), s; }
    TempDir home;
    std::string script;
    Result started;
    std::string settings;
};

class ScaledServerStopped : public ::testing::TestWithParam<std::string> {};

// The file in hand fails with the cause, its rollback cannot reach the server,
// the walk stops there with the closing lines, and every file stored is whole.
// A fast shutdown keeps every commit; an immediate one may lose the last, whole.
TEST_P(ScaledServerStopped, InTheMiddleOfARunStopsTheWalkWithTheCause)
{
    const Engine& engine = *std::find_if(engines().begin(), engines().end(), [](const Engine& e) { return e.name == GetParam(); });
    if (!std::getenv(engine.variable)) GTEST_SKIP() << "no " << engine.name << " server: set " << engine.variable << " (.ci/run does)";
    if (::geteuid() != 0) GTEST_SKIP() << "a server of the test's own runs as its own user: needs root";
    OwnServer server(engine);
    ASSERT_FALSE(server.settings.empty()) << server.started.out << server.started.err;
    Stage stage(engine.name, server.settings);
    const struct {
        const char* mode;
        bool inAFile;
    } faults[] = {{"fast", true}, {"immediate", false}};
    for (int round = 0; round < 2 * scale().rounds && !HasFailure(); ++round) {
        const auto [mode, inAFile] = faults[round % 2];
        SCOPED_TRACE(std::string(mode) + (inAFile ? " in a file" : " between files"));
        const size_t before = stage.pause(inAFile), paused = stage.paused.first;
        ASSERT_TRUE(stage.run) << "no run was paused where asked";
        ASSERT_EQ(server.control("halt", mode).status, 0);
        stage.run->resume();
        const Result end = stage.run->finish();
        ASSERT_FALSE(end.timedOut) << "the program hangs once the server is gone";
        const size_t rollback = end.err.find("SQLException: Cannot roll back: no connection to the server\n");
        ASSERT_NE(rollback, std::string::npos) << end.err;
        bool told = false;
        for (const char* cause : {"terminating connection due to", "server closed the connection unexpectedly",
                                  "could not send data to server", "could not receive data from server",
                                  "Error reading data from the connection", "Error writing data to the connection", "shutdown"})
            told = told || end.err.rfind(cause, rollback) != std::string::npos;
        EXPECT_TRUE(told && end.err.find("SQLException: Cannot ") < rollback) << "the failure behind the rollback is not reported:\n"
                                                                              << end.err;
        EXPECT_EQ(occurrences(end.err, "SQLException"), 2u) << end.err;
        EXPECT_TRUE(closes(end.out));
        EXPECT_LT(occurrences(end.out, "\nFILE["), stage.paths.size()) << "the walk went on without the server";
        ASSERT_EQ(server.control("resume").status, 0);
        const Stored after = read(stage.catalogue);
        expectWhole(after, stage.clean);
        EXPECT_GE(after.files.size(), std::string(mode) == "fast" ? paused : before);
        EXPECT_LE(after.files.size(), paused + 1);
    }
    expectNextRunStoresAll(stage.catalogue, stage.paths, stage.clean, stage.tree.root());
}

INSTANTIATE_TEST_SUITE_P(Engines, ScaledServerStopped, ::testing::Values("PostgreSQL", "Firebird"), testName);

// An SQLite file bounded in size: every file that does not fit fails on its
// own with the cause, and the walk goes to the end. Long runs set the bound
// above what the write-ahead log grows to, so that copying the log reaches it.
TEST(ScaledDiskFull, EveryFileThatDoesNotFitFailsWholeAndTheWalkGoesOn)
{
    Stage stage("SQLite");
    const uintmax_t full = std::filesystem::file_size(stage.reference.file());
    const Launch bounded{environment(), static_cast<long long>(longRun() ? ((5 << 20) + full) / 2 : full / 4)};
    ASSERT_TRUE(!longRun() || full > 2 * (5 << 20)) << "the tree is too small to fill more than the log";
    const Result end = sonarcat({"--database=" + stage.catalogue.database(), stage.tree.root()}, bounded, 600);
    EXPECT_TRUE(closes(end.out));
    EXPECT_EQ(occurrences(end.out, "\nFILE["), stage.paths.size()) << "the walk stopped";
    const Stored after = read(stage.catalogue);
    expectWhole(after, stage.clean);
    EXPECT_GT(after.files.size(), 0u);
    EXPECT_LT(after.files.size(), stage.paths.size()) << "the bound does not bite";
    EXPECT_EQ(occurrences(end.err, "SQLException: "), stage.paths.size() - after.files.size())
        << "not one message for each file not stored";
    EXPECT_EQ(occurrences(end.err, "SQLException: "),
              occurrences(end.err, ": disk I/O error") + occurrences(end.err, ": database or disk is full"));
    expectNextRunStoresAll(stage.catalogue, stage.paths, stage.clean, stage.tree.root());
}

// The report's output fails: a pipe whose reader is gone, a full disk, a
// descriptor that is not open. The run is not killed by SIGPIPE: it says so once
// and the walk ends, no file is stored in part, and no failure to print is
// stored as a file's error. A failing standard error changes nothing stored.
TEST(ScaledOutputFails, EndsTheWalkWithOneMessageAndNoFileInPart)
{
    Stage stage("SQLite");
    int pipe[2];
    ASSERT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
    ::close(pipe[0]);
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    const struct {
        const char* what;
        int out, err, error;
    } cases[] = {
        {"a pipe without reader", pipe[1], -1, EPIPE}, {"/dev/full", full, -1, ENOSPC},
        {"a closed descriptor", kClosed, -1, EBADF},   {"standard error on /dev/full", -1, full, 0},
        {"standard error closed", -1, kClosed, 0},
    };
    for (int n = 0; n < 2 * static_cast<int>(std::size(cases)); ++n) {
        const auto& c = cases[n / 2];
        const std::string dir = n % 2 ? "d3" : "d0"; // the first failed write comes while storing, while reading tags
        SCOPED_TRACE(std::string(c.what) + " in " + dir);
        const size_t files = scale().perDir;
        Catalogue catalogue("SQLite");
        const Result r =
            sonarcat({"--verbose", "--database=" + catalogue.database(), stage.tree / dir}, {environment(), 0, false, c.out, c.err}, 600);
        EXPECT_EQ(std::tuple(r.status, r.signal), std::tuple(0, 0)) << r.err;
        const Stored stored = read(catalogue);
        expectWhole(stored, stage.clean);
        EXPECT_EQ(catalogue.count("STOR_FILE WHERE FILE_ER <> ''"), "0") << "a failure to print is no file's error";
        if (!c.error) {
            EXPECT_EQ(stored.files.size(), files);
            EXPECT_TRUE(closes(r.out));
            continue;
        }
        EXPECT_EQ(occurrences(r.err, "Exception"), 1u) << r.err;
        EXPECT_TRUE(has(r.err, std::string("IOException: Write Failed [descriptor 1] (") + std::strerror(c.error) + ")\n")) << r.err;
        EXPECT_LT(stored.files.size(), files / 2) << "the walk went on";
    }
    ::close(pipe[1]), ::close(full);
}

} // namespace
