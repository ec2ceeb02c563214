// What the storing fault tests share: a tree whose files carry from none to
// hundreds of tag rows, the catalogue read back file by file, the checks that
// no file is stored in part, and a run paused in the middle of a file.
#pragma once

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <chrono>
#include <map>
#include <netinet/in.h>
#include <set>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include "e2e/Catalogue.h"
#include "e2e/Program.h"
#include "support/SpawnedProgram.h"
#include "support/TagBuilder.h"

namespace faults {

using e2e::Row;

struct Tree {
    std::string top;
    std::vector<std::string> paths; // every file, full path
};

// dirs directories of perDir files. Every fourth file carries `heavy` ID3v2
// frames and as many APE items, which makes its transaction long enough for a
// fault to land inside it; the others carry a few rows, only ID3v1, or no tag,
// and some are not MP3 files at all. Every value names its file, so rows that
// went to the wrong file show.
inline Tree makeTree(const std::string& top, size_t dirs, size_t perDir, size_t heavy)
{
    using namespace tagfix;
    Tree tree{top, {}};
    const std::string audio = readFile(e2e::sample("sine-1s.mp3"));
    ::mkdir(top.c_str(), 0755);
    for (size_t d = 0; d < dirs; ++d) {
        const std::string dir = top + "/d" + std::to_string(d);
        ::mkdir(dir.c_str(), 0755);
        for (size_t f = 0; f < perDir; ++f) {
            const size_t i = d * perDir + f;
            const std::string tag = "file " + std::to_string(i);
            std::string name = std::to_string(f), bytes;
            name.insert(0, 1, 'f').append(".mp3");
            switch (i % 4) {
            case 0: {
                std::vector<Frame> frames;
                std::vector<ApeItem> items;
                for (size_t j = 0; j < heavy; ++j) {
                    const std::string n = std::to_string(j);
                    if (j % 3 == 0) frames.push_back({"TXXX", std::string(1, '\0') + "d" + n + '\0' + tag + " value " + n});
                    else if (j % 3 == 1) frames.push_back({"COMM", std::string("\0eng", 4) + n + '\0' + tag + " comment"});
                    else frames.push_back({"PRIV", "owner" + n + '\0' + std::string(j % 90 + 1, static_cast<char>('a' + j % 26))});
                    items.push_back({"Key" + n, tag + " item " + n});
                }
                bytes = id3v2(3, frames, 16) + audio + ape(2000, items, true) + id3v1(tag, "Artist", "Album", "2001", "", static_cast<int>(i % 200), 17);
                break;
            }
            case 1: bytes = id3v2(4, {{"TIT2", textBody(tag)}, {"TPE1", textBody("Artist " + std::to_string(d))}}) + audio + id3v1(tag); break;
            case 2: bytes = audio + ape(1000, {{"Title", tag}, {"Track", std::to_string(f)}}, false) + id3v1(tag, "", "", "", "", static_cast<int>(f)); break;
            default:
                if (f % 10 == 3) {
                    name = "notes" + std::to_string(f) + ".txt";
                    bytes = tag + "\n";
                } else {
                    bytes = audio;
                }
            }
            writeFile(dir + "/" + name, bytes);
            tree.paths.push_back(dir + "/" + name);
        }
    }
    return tree;
}

inline const char* const kTagTables[] = {"ID3V1", "ID3V2", "ID3V2_FRAME", "APE", "APE_ITEM"};
constexpr size_t kFrames = 2, kItems = 4; // indexes into kTagTables

struct StoredFile {
    long long dir = 0;
    std::string path; // the directory row's path and the file's name
    Row columns;      // STOR_FILE without ids, access time and row times
    std::vector<Row> tags[5]; // the rows of each of kTagTables without FILE_ID, by NO_
};

// A catalogue read back: its files by FILE_ID, and the rows that belong to no
// file or no directory.
struct Catalogued {
    std::map<long long, std::string> dirs;
    std::map<long long, StoredFile> files;
    std::vector<std::string> orphans;

    long long lastFile() const { return files.empty() ? 0 : files.rbegin()->first; }
    long long lastDir() const { return dirs.empty() ? 0 : dirs.rbegin()->first; }
};

inline Catalogued readCatalogue(e2e::Catalogue& c)
{
    Catalogued s;
    for (const Row& r : c.rows("SELECT DIR_ID, PATH FROM STOR_DIR")) s.dirs[std::stoll(r.at(0))] = r.at(1);
    std::set<long long> usedDirs;
    for (const Row& r : c.rows("SELECT FILE_ID, DIR_ID, NAME, FILE_NM, FILE_SZ, FILE_MT, FILE_CT, FILE_ER, MEDI_FM, MEDI_WI, MEDI_HE, "
                               "MEDI_DU, MEDI_NF, USER_ID, STOR_ID, TYPE_ID, READ_CO FROM STOR_FILE")) {
        StoredFile& f = s.files[std::stoll(r.at(0))];
        f.dir = std::stoll(r.at(1));
        usedDirs.insert(f.dir);
        auto dir = s.dirs.find(f.dir);
        if (dir == s.dirs.end()) s.orphans.push_back("STOR_FILE " + r[0] + " of a missing STOR_DIR " + r[1]);
        else f.path = dir->second + r.at(2);
        f.columns.assign(r.begin() + 2, r.end());
    }
    // A directory row is written in the transaction of its directory's first file.
    for (const auto& [id, path] : s.dirs)
        if (!usedDirs.count(id)) s.orphans.push_back("STOR_DIR " + std::to_string(id) + " without a file [" + path + "]");
    const std::string columns[] = {"TITLE, ARTIST, ALBUM, YEAR_, COMMENT_, TRACK, GENRE", "VERSION, FLAGS, SIZE_, FSBITS",
                                   "NO_, FRAME_ID, SIZE_, FLAGS, ENCODING, TYPE_, URL, DESCRIPTION, TEXT_, " + c.hex("BINARY_"),
                                   "VERSION, SIZE_, COUNT_, FLAGS", "NO_, SIZE_, FLAGS, KEY_, VALUE_"};
    for (size_t t = 0; t < 5; ++t) {
        const std::string order = t == kFrames || t == kItems ? "FILE_ID, NO_" : "FILE_ID";
        for (const Row& r : c.rows("SELECT FILE_ID, " + columns[t] + " FROM " + kTagTables[t] + " ORDER BY " + order)) {
            auto f = s.files.find(std::stoll(r.at(0)));
            if (f == s.files.end()) s.orphans.push_back(std::string(kTagTables[t]) + " row of a missing STOR_FILE " + r[0]);
            else f->second.tags[t].emplace_back(r.begin() + 1, r.end());
        }
    }
    for (const auto& [id, f] : s.files) {
        if (!f.tags[kFrames].empty() && f.tags[kFrames - 1].empty()) s.orphans.push_back("ID3V2_FRAME rows without ID3V2 of " + std::to_string(id));
        if (!f.tags[kItems].empty() && f.tags[kItems - 1].empty()) s.orphans.push_back("APE_ITEM rows without APE of " + std::to_string(id));
    }
    return s;
}

inline std::string firstOf(const std::vector<std::string>& lines, size_t n = 10)
{
    std::string s;
    for (size_t i = 0; i < lines.size() && i < n; ++i) s += "\n  " + lines[i];
    if (lines.size() > n) s += "\n  ... " + std::to_string(lines.size() - n) + " more";
    return s;
}

// No row belongs to nothing, and every stored file holds exactly the rows a
// clean run stored for the same path.
inline void expectWholeFiles(const Catalogued& got, const Catalogued& clean)
{
    EXPECT_TRUE(got.orphans.empty()) << got.orphans.size() << " orphan rows:" << firstOf(got.orphans);
    std::map<std::string, const StoredFile*> reference;
    for (const auto& [id, f] : clean.files) reference[f.path] = &f;
    std::vector<std::string> wrong;
    for (const auto& [id, f] : got.files) {
        if (f.path.empty()) continue; // an orphan, reported above
        const std::string what = "FILE_ID " + std::to_string(id) + " [" + f.path + "]: ";
        auto ref = reference.find(f.path);
        if (ref == reference.end()) {
            wrong.push_back(what + "a path that the clean run did not store");
            continue;
        }
        if (f.columns != ref->second->columns) wrong.push_back(what + "STOR_FILE differs");
        for (size_t t = 0; t < 5; ++t)
            if (f.tags[t] != ref->second->tags[t])
                wrong.push_back(what + kTagTables[t] + " has " + std::to_string(f.tags[t].size()) + " rows, the clean run " +
                                std::to_string(ref->second->tags[t].size()) + (f.tags[t].size() == ref->second->tags[t].size() ? ", different" : ""));
    }
    EXPECT_TRUE(wrong.empty()) << wrong.size() << " differences from a clean run:" << firstOf(wrong);
}

inline std::vector<std::string> storeArguments(const std::string& database, const Tree& tree) { return {SONARCAT_BINARY, "--database=" + database, tree.top}; }

// A clean run of the tree into a fresh catalogue, read back.
inline Catalogued cleanRun(e2e::Catalogue& c, const std::string& database, const Tree& tree)
{
    auto r = e2e::sonarcat({"--database=" + database, tree.top});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err.find("Exception"), std::string::npos) << r.err;
    Catalogued clean = readCatalogue(c);
    EXPECT_EQ(clean.files.size(), tree.paths.size()) << "the clean run did not store the whole tree";
    return clean;
}

// A run without the fault stores every file of the tree again, whole, with
// ids above all earlier ones, and leaves the earlier rows as they were.
inline void expectNextRunStoresAll(e2e::Catalogue& c, const std::string& database, const Tree& tree, const Catalogued& clean)
{
    const Catalogued before = readCatalogue(c);
    auto r = e2e::sonarcat({"--database=" + database, tree.top});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err.find("Exception"), std::string::npos) << r.err;
    const Catalogued after = readCatalogue(c);
    expectWholeFiles(after, clean);
    std::multiset<std::string> stored;
    for (auto f = after.files.upper_bound(before.lastFile()); f != after.files.end(); ++f) stored.insert(f->second.path);
    EXPECT_EQ(stored, std::multiset<std::string>(tree.paths.begin(), tree.paths.end())) << "the new run did not store each file once";
    EXPECT_EQ(after.files.size(), before.files.size() + tree.paths.size());
    for (const auto& [id, path] : after.dirs)
        if (!before.dirs.count(id) && id <= before.lastDir()) ADD_FAILURE() << "STOR_DIR " << id << " is not above the earlier ids";
    for (const auto& [id, f] : before.files) {
        auto kept = after.files.find(id);
        if (kept == after.files.end() || kept->second.columns != f.columns) ADD_FAILURE() << "FILE_ID " << id << " changed in the next run";
    }
}

inline size_t storedFiles(e2e::Catalogue& c) { return std::stoul(c.countOf("STOR_FILE")); }

// What a look at a (paused) run finds.
struct Moment {
    bool seen = false;   // the database could be read
    size_t stored = 0;   // committed files
    bool inFile = false; // the run holds an open transaction that has written rows
};

inline Moment look(e2e::Catalogue& c)
{
    Moment m;
    if (auto* sqlite = dynamic_cast<e2e::SQLiteCatalogue*>(&c)) {
        // A run stopped at some moments (in a checkpoint, say) holds a lock
        // that even readers wait for; the client does not wait, and reads
        // nothing. Another writer is refused while the run's transaction has
        // written rows.
        auto r = testsupport::runProgram({"/usr/bin/sqlite3", "-bail", sqlite->file(), "SELECT COUNT(*) FROM STOR_FILE; BEGIN IMMEDIATE; ROLLBACK;"},
                                         testsupport::plainEnvironment("C.UTF-8"));
        if (r.out.empty()) return m;
        m.seen = true;
        m.stored = std::stoul(r.out);
        m.inFile = r.status != 0 && r.err.find("database is locked") != std::string::npos;
        return m;
    }
    const auto rows = c.rows("SELECT (SELECT COUNT(*) FROM STOR_FILE), (SELECT COUNT(*) FROM pg_stat_activity WHERE datname = current_database() "
                             "AND application_name = 'sonarcat' AND backend_xid IS NOT NULL)");
    m.seen = true;
    m.stored = std::stoul(rows.at(0).at(0));
    m.inFile = rows.at(0).at(1) == "1";
    return m;
}

enum class Where { InAFile, BetweenFiles };

// Lets the run store `first` files, then pauses it (SIGSTOP) where asked:
// inside a file's transaction once it has written rows, or outside one. When
// many tries miss the place, anywhere. False when the run ended first.
// at: what the database held at the pause.
inline bool pauseRun(testsupport::SpawnedProgram& run, e2e::Catalogue& c, size_t first, Where where, Moment& at)
{
    for (;;) {
        if (!run.running()) return false;
        const Moment m = look(c);
        if (m.seen && m.stored >= first) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    for (int attempt = 0; attempt < 400; ++attempt) {
        if (!run.pause()) return false;
        at = look(c);
        if (at.seen && (at.inFile == (where == Where::InAFile) || attempt >= 200)) return true;
        run.resume();
        std::this_thread::sleep_for(std::chrono::microseconds(200 + attempt * 397 % 3000));
    }
    return false;
}

// The report ends as a finished run's does: the rule and the Finish line.
inline bool closes(const std::string& out)
{
    const std::string rule(80, '=');
    const size_t at = out.rfind(rule + "\nFinish [");
    return at != std::string::npos && out.find('\n', at + rule.size() + 1) == out.size() - 1;
}

// A run into a fresh SQLite catalogue whose files may not grow beyond limit
// bytes: every file that does not fit fails on its own, with a message that
// names the cause, the walk goes to the end, and the next run without the
// limit stores the whole tree.
inline void expectFilesBeyondTheLimitFailAlone(const Tree& tree, const Catalogued& clean, uintmax_t limit)
{
    SCOPED_TRACE("file size limit " + std::to_string(limit));
    e2e::SQLiteCatalogue catalogue;
    const std::string database = catalogue.create();
    testsupport::SpawnedProgram run(storeArguments(database, tree), testsupport::plainEnvironment(), static_cast<long long>(limit));
    ASSERT_TRUE(run.started());
    const testsupport::Ending end = run.finish(600);
    ASSERT_FALSE(end.timedOut);
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_TRUE(closes(end.out));
    EXPECT_EQ(e2e::occurrences(end.out, "\nFILE["), tree.paths.size()) << "the walk stopped";

    const Catalogued after = readCatalogue(catalogue);
    expectWholeFiles(after, clean);
    EXPECT_GT(after.files.size(), 0u);
    EXPECT_LT(after.files.size(), tree.paths.size()) << "nothing failed: the limit does not bite";
    EXPECT_EQ(e2e::occurrences(end.err, "SQLException: "), tree.paths.size() - after.files.size()) << "not one message for each file not stored";
    std::vector<std::string> unclear;
    for (size_t at = end.err.find("SQLException: "); at != std::string::npos; at = end.err.find("SQLException: ", at + 1)) {
        const std::string line = end.err.substr(at, end.err.find('\n', at) - at);
        if (line.find(": disk I/O error") == std::string::npos && line.find(": database or disk is full") == std::string::npos) unclear.push_back(line);
    }
    EXPECT_TRUE(unclear.empty()) << firstOf(unclear);

    expectNextRunStoresAll(catalogue, database, tree, clean);
}

inline int freePort()
{
    int s = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t n = sizeof a;
    int port = 0;
    if (::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 && ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &n) == 0) port = ntohs(a.sin_port);
    ::close(s);
    return port;
}

// A PostgreSQL cluster of the test's own, which it may stop and start: the
// shared test server serves other tests at the same time. .ci/postgres runs
// it as its unprivileged user.
class OwnServer {
public:
    OwnServer()
    {
        ::chmod(home_.path().c_str(), 0755); // the server's user reaches its directory
        cluster_ = home_ / "cluster";
        port_ = std::to_string(freePort());
        auto r = script({"start", cluster_, port_});
        if (r.status == 0) settings_ = r.out.substr(0, r.out.find('\n'));
        else error_ = r.out + r.err;
    }
    ~OwnServer() { script({"stop", cluster_}); }

    const std::string& settings() const { return settings_; }
    const std::string& error() const { return error_; }

    // mode: how pg_ctl shuts the server down (fast, immediate).
    testsupport::RunResult stop(const std::string& mode) { return script({"halt", cluster_, mode}); }
    testsupport::RunResult start() { return script({"resume", cluster_, port_}); }

private:
    testsupport::RunResult script(std::vector<std::string> args)
    {
        args.insert(args.begin(), {"/bin/bash", std::string(SONARCAT_SOURCE_DIR) + "/.ci/postgres"});
        return testsupport::runProgram(args, {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LANG=C.UTF-8"}, 120);
    }

    testsupport::TempDir home_;
    std::string cluster_, port_, settings_, error_;
};

// A tree stored by a clean run into one catalogue on a server of the test's
// own, and a second, empty catalogue there for the run under test. database
// stays empty when the server did not start.
struct OnOwnServer {
    OnOwnServer(size_t dirs, size_t perDir, size_t heavy) : tree(makeTree(dir / "tree", dirs, perDir, heavy))
    {
        if (server.settings().empty()) return;
        clean = cleanRun(reference, reference.create(), tree);
        database = catalogue.create();
    }

    OwnServer server;
    testsupport::TempDir dir;
    Tree tree;
    e2e::PostgresCatalogue reference{server.settings()}, catalogue{server.settings()};
    Catalogued clean;
    std::string database;
};

// What libpq and the server say when the connection is cut.
inline bool tellsOfALostServer(const std::string& text)
{
    for (const char* cause : {"terminating connection due to administrator command", "terminating connection due to immediate shutdown command",
                              "server closed the connection unexpectedly", "could not send data to server", "could not receive data from server"})
        if (text.find(cause) != std::string::npos) return true;
    return false;
}

// A run into the catalogue, paused inside a file or between files once
// `first` files are stored, while the server is stopped the given way
// (pg_ctl -m); then the
// server is started again. The file in hand fails with the cause, its
// rollback cannot reach the server, the walk stops there with the closing
// lines, and every file the catalogue holds is whole.
inline void stopTheServerUnderARun(OwnServer& server, e2e::Catalogue& catalogue, const std::string& database, const Tree& tree,
                                   const Catalogued& clean, const std::string& mode, Where where, size_t first)
{
    SCOPED_TRACE("pg_ctl stop -m " + mode + (where == Where::InAFile ? " in a file" : " between files"));
    const size_t before = storedFiles(catalogue);
    testsupport::SpawnedProgram run(storeArguments(database, tree), testsupport::plainEnvironment());
    ASSERT_TRUE(run.started());
    Moment paused;
    ASSERT_TRUE(pauseRun(run, catalogue, first, where, paused)) << "the run ended before the server could be stopped";
    auto stopped = server.stop(mode);
    ASSERT_EQ(stopped.status, 0) << stopped.out << stopped.err;
    run.resume();
    const testsupport::Ending end = run.finish(60);
    ASSERT_FALSE(end.timedOut) << "the program hangs once the server is gone";
    EXPECT_EQ(paused.inFile, where == Where::InAFile) << "never paused at the place asked for";

    EXPECT_EQ(end.exitCode, 0);
    const std::string rollback = "SQLException: Cannot roll back: no connection to the server\n";
    const size_t at = end.err.find(rollback);
    EXPECT_NE(at, std::string::npos) << end.err;
    const std::string cause = end.err.substr(0, at);
    EXPECT_NE(cause.find("SQLException: Cannot "), std::string::npos) << "the failure behind the rollback is not reported:\n" << end.err;
    EXPECT_TRUE(tellsOfALostServer(cause)) << end.err;
    EXPECT_EQ(e2e::occurrences(end.err, "SQLException"), 2u) << end.err;
    EXPECT_TRUE(closes(end.out)) << end.out.substr(end.out.size() > 500 ? end.out.size() - 500 : 0);
    const size_t walked = e2e::occurrences(end.out, "\nFILE[");
    EXPECT_GT(walked, paused.stored - before);
    EXPECT_LT(walked, tree.paths.size()) << "the walk went on without the server";

    auto started = server.start();
    ASSERT_EQ(started.status, 0) << started.out << started.err;
    const Catalogued after = readCatalogue(catalogue);
    expectWholeFiles(after, clean);
    // A fast shutdown keeps every commit, and the file in hand when its
    // commit had reached the server. The commits do not wait for the
    // server's disk: an immediate shutdown may lose the last of them, whole.
    if (mode == "fast") {
        EXPECT_GE(after.files.size(), paused.stored);
    }
    EXPECT_LE(after.files.size(), paused.stored + 1);
    EXPECT_GE(after.files.size(), before);
}

// A run into the catalogue, paused inside a file once `first` files are
// stored, and ended there by the signal. Nothing of the file in hand stays;
// the files committed before it do, whole.
inline void killARun(e2e::Catalogue& catalogue, const std::string& database, const Tree& tree, const Catalogued& clean, int signal, size_t first)
{
    SCOPED_TRACE("signal " + std::to_string(signal));
    testsupport::SpawnedProgram run(storeArguments(database, tree), testsupport::plainEnvironment());
    ASSERT_TRUE(run.started());
    Moment paused;
    ASSERT_TRUE(pauseRun(run, catalogue, first, Where::InAFile, paused)) << "the run ended before it could be killed";
    run.signal(signal); // delivered as it goes on, before it runs any further
    run.resume();
    const testsupport::Ending end = run.finish(60);
    EXPECT_TRUE(paused.inFile) << "never paused inside a file's transaction";
    EXPECT_EQ(end.signal, signal) << "exit code " << end.exitCode << "\n" << end.err;
    EXPECT_FALSE(closes(end.out));

    // Paused in its commit, the file in hand may be committed already
    // though the run never heard so; then it is there whole.
    const Catalogued after = readCatalogue(catalogue);
    EXPECT_GE(after.files.size(), paused.stored);
    EXPECT_LE(after.files.size(), paused.stored + 1);
    expectWholeFiles(after, clean);
}

} // namespace faults
