// Trees that fight back, walked by an unprivileged user: unreadable files and
// directories, link loops, links to a parent, FIFOs, sockets, names that are
// not UTF-8 or are as long as a name may be, and paths deeper than most. Every
// entry gets its line and its message, the walk never hangs, and where the
// walk must stop the closing lines still print.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "e2e/Catalogue.h"
#include "e2e/Unprivileged.h"
#include "support/TagBuilder.h"

using tagfix::readFile;
using tagfix::writeFile;

namespace {

const std::string kFileRule(80, '=');

void makeSocket(const std::string& path)
{
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof addr.sun_path);
    path.copy(addr.sun_path, path.size());
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0) << path;
    ::close(fd);
}

// Nests levels directories named name under parent and returns the innermost.
// mkdir by path fails beyond PATH_MAX, so each level is made relative to the
// one above.
std::string nest(const std::string& parent, const std::string& name, size_t levels)
{
    int fd = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY);
    std::string path = parent;
    for (size_t i = 0; i < levels && fd >= 0; ++i) {
        ::mkdirat(fd, name.c_str(), 0755);
        int next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
        ::close(fd);
        fd = next;
        path += "/" + name;
    }
    if (fd >= 0) ::close(fd);
    return path;
}

struct Entry {
    std::string dir;   // below the root, "" for the root itself
    std::string name;
    std::string notes; // "" for a file read in full
    std::string error; // the line on the error output, after the path
};

class HostileTree : public ::testing::Test {
protected:
    void SetUp() override
    {
        ::chmod(top.path().c_str(), 0755);
        root = top / "music";
        ::mkdir(root.c_str(), 0755);
        audio = readFile(e2e::sample("sine-1s.mp3"));
    }

    void copyAudio(const std::string& path) { writeFile(path, audio); }

    testsupport::TempDir top;
    std::string root, audio;
    e2e::Unprivileged nobody;
};

TEST_F(HostileTree, EveryEntryIsListedWithItsReason)
{
    ::mkdir((root + "/g-deep").c_str(), 0755);
    const std::string deep = nest(root + "/g-deep", "level", 120);
    const std::string deepBelow = deep.substr(root.size() + 1);
    copyAudio(deep + "/deep.mp3");
    const std::string badName = "a-bad\xff\xfe.mp3";
    std::string longName = "z";
    for (int i = 0; i < 125; ++i) longName += "\xc3\xa9"; // é
    longName += ".mp3";
    ASSERT_EQ(longName.size(), 255u);
    copyAudio(root + "/" + badName);
    ::symlink("nothing.mp3", (root + "/b-dangling.mp3").c_str());
    ::mkfifo((root + "/c-fifo.mp3").c_str(), 0644);
    copyAudio(root + "/d-locked.mp3");
    ::chmod((root + "/d-locked.mp3").c_str(), 0);
    ::symlink("e-loop2.mp3", (root + "/e-loop1.mp3").c_str());
    ::symlink("e-loop1.mp3", (root + "/e-loop2.mp3").c_str());
    makeSocket(root + "/f-sock.mp3");
    ::symlink("..", (root + "/g-deep/up").c_str());
    ::symlink(".", (root + "/i-self").c_str());
    ::mkdir((root + "/j-\xff").c_str(), 0755);
    copyAudio(root + "/j-\xff/k.mp3");
    copyAudio(root + "/" + longName);

    const std::vector<Entry> expected = {
        {"", badName, "", ""},
        {"", "b-dangling.mp3", "Open Failed", "(No such file or directory)"},
        {"", "c-fifo.mp3", "Open Failed: not a regular file", ""},
        {"", "d-locked.mp3", "Open Failed", "(Permission denied)"},
        {"", "e-loop1.mp3", "Open Failed", "(Too many levels of symbolic links)"},
        {"", "e-loop2.mp3", "Open Failed", "(Too many levels of symbolic links)"},
        {"", "f-sock.mp3", "Open Failed", "(No such device or address)"},
        {deepBelow, "deep.mp3", "", ""},
        {"j-\xff", "k.mp3", "", ""},
        {"", longName, "", ""},
    };

    auto r = nobody.run({root});
    ASSERT_FALSE(r.timedOut);
    size_t at = 0;
    for (const Entry& e : expected) {
        const std::string dir = root + "/" + (e.dir.empty() ? "" : e.dir + "/");
        const std::string head = kFileRule + "\nDIR [" + dir + "]\nFILE[" + e.name + "]\n";
        size_t found = r.out.find(head, at);
        ASSERT_NE(found, std::string::npos) << e.name << " not listed in order\n" << r.out;
        at = found + head.size();
        const std::string line = r.out.substr(at, r.out.find('\n', at) - at);
        if (e.notes.empty()) {
            EXPECT_NE(line.find("notes[]"), std::string::npos) << line;
            EXPECT_EQ(r.out.compare(r.out.find('\n', at) + 1, 26, "    format[MPEG Audio] wid"), 0) << e.name;
        } else {
            const std::string note = e.notes + " [" + dir + e.name + "]";
            EXPECT_NE(line.find("notes[" + note + "]"), std::string::npos) << line;
            const std::string error = "IOException: " + note + (e.error.empty() ? "" : " " + e.error) + "\n";
            EXPECT_NE(r.err.find(error), std::string::npos) << error << r.err;
        }
    }
    EXPECT_EQ(r.out.find("FILE[", at), std::string::npos) << "more files than the tree holds\n" << r.out.substr(at);
    for (const char* skipped : {"/g-deep/up]", "/i-self]"})
        EXPECT_NE(r.err.find("Link to a directory above skipped [" + root + skipped + "\n"), std::string::npos) << r.err;
    EXPECT_NE(r.out.find(kFileRule + "\nFinish ["), std::string::npos);
    EXPECT_NE(r.err.find(e2e::kCleanLeakReport), std::string::npos) << r.err;

    // The census goes through the same tree without a hang either.
    auto census = nobody.run({"--summary", root});
    ASSERT_FALSE(census.timedOut);
    EXPECT_NE(census.out.find("Finish ["), std::string::npos) << census.out << census.err;

    // Stored, every listed file has its row; names that are not UTF-8 are
    // stored with U+FFFD in place of each stray byte.
    e2e::SQLiteCatalogue sqlite;
    e2e::PostgresCatalogue postgres;
    for (e2e::Catalogue* catalogue : std::initializer_list<e2e::Catalogue*>{&sqlite, &postgres}) {
        const std::string database = catalogue->create();
        if (database.empty()) continue;
        if (catalogue == &sqlite) {
            const std::filesystem::path file(sqlite.file());
            e2e::Unprivileged::handOver(file.parent_path());
            e2e::Unprivileged::handOver(file);
        }
        auto stored = nobody.run({"--database=" + database, root});
        ASSERT_FALSE(stored.timedOut);
        EXPECT_EQ(stored.err.find("SQLException"), std::string::npos) << stored.err;
        auto names = catalogue->rows("SELECT FILE_NM FROM STOR_FILE ORDER BY FILE_ID");
        ASSERT_EQ(names.size(), expected.size()) << database;
        EXPECT_EQ(names[0][0], "a-bad\xef\xbf\xbd\xef\xbf\xbd.mp3");
        EXPECT_EQ(names.back()[0], longName);
        EXPECT_EQ(catalogue->rows("SELECT PATH FROM STOR_DIR WHERE PATH LIKE '%j-%'").at(0)[0], root + "/j-\xef\xbf\xbd/");
    }
}

TEST_F(HostileTree, UnreadableDirectoryStopsTheWalkWithTheClosingLines)
{
    copyAudio(root + "/a-first.mp3");
    ::mkdir((root + "/m-locked").c_str(), 0755);
    copyAudio(root + "/m-locked/inside.mp3");
    ::chmod((root + "/m-locked").c_str(), 0);
    copyAudio(root + "/z-last.mp3");

    for (const std::vector<std::string>& args : {std::vector<std::string>{root}, {"--summary", "--verbose", root}}) {
        auto r = nobody.run(args);
        ASSERT_FALSE(r.timedOut);
        EXPECT_NE(r.err.find("IOException: Open Directory Failed [" + root + "/m-locked] (Permission denied)\n"), std::string::npos) << r.err;
        if (args.size() == 1) {
            EXPECT_NE(r.out.find("FILE[a-first.mp3]"), std::string::npos) << r.out;
        }
        EXPECT_EQ(r.out.find("inside.mp3"), std::string::npos) << r.out;
        EXPECT_EQ(r.out.find("z-last.mp3"), std::string::npos) << r.out;
        EXPECT_NE(r.out.find(kFileRule + "\nFinish ["), std::string::npos) << r.out;
        EXPECT_NE(r.err.find(e2e::kCleanLeakReport), std::string::npos) << r.err;
    }
}

TEST_F(HostileTree, PathBeyondTheSystemLimitStopsTheWalkWithTheClosingLines)
{
    copyAudio(root + "/a-first.mp3");
    const std::string deep = nest(root, std::string(200, 'x'), 25);
    ASSERT_GT(deep.size(), static_cast<size_t>(PATH_MAX));

    auto r = nobody.run({root});
    ASSERT_FALSE(r.timedOut);
    EXPECT_NE(r.out.find("FILE[a-first.mp3]"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find("IOException: Open Directory Failed [" + root + "/"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("] (File name too long)\n"), std::string::npos) << r.err;
    EXPECT_NE(r.out.find(kFileRule + "\nFinish ["), std::string::npos) << r.out;
    EXPECT_NE(r.err.find(e2e::kCleanLeakReport), std::string::npos) << r.err;
}

} // namespace
