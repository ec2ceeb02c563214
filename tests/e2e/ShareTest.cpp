// A library on a network share with a real round trip: an sshd in a private
// network namespace on loopback and sshfs, every packet held 1 ms
// (bench/share/share.sh). Read over the share, the tree gives the report and
// the rows it gives on the local disk, paths and times aside (the share keeps
// whole seconds); a share whose server dies in the middle of a run ends the
// run, no file that failed for it is stored, and an update once the share is
// back removes nothing. Needs root and the share's tools (.ci/run installs
// them); skipped without them.
#define ZEL_SOURCE "tests/e2e/ShareTest"
#include <gtest/gtest.h>

#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "support/Catalogue.h"
#include "support/Files.h"
#include "support/Program.h"
#include "support/TagBuilder.h"

using namespace testsupport;

namespace {

constexpr size_t kFiles = 319; // 300 tracks, 15 covers, 3 notes and one more name

class Share : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        if (::geteuid() != 0) return void(why_ = "the share needs root");
        for (const char* tool : {"/usr/sbin/sshd", "/usr/bin/sshfs", "/usr/sbin/iptables", "/usr/bin/gcc", "/usr/bin/ping"})
            if (::access(tool, X_OK) != 0) return void(why_ = std::string("the share needs ") + tool);
        top_ = std::make_unique<TempDir>();
        ::chmod(top_->path().c_str(), 0755);
        const Tree tree(*top_ / "music");
        const std::vector<Sample>& tagged = samples();
        const std::string cover = readFile(dataFile("tagged/cover.png"));
        for (int i = 0; i < 300; ++i) {
            const std::string album = "artist-" + std::to_string(i / 100) + "/album-" + std::to_string(i / 20 % 5) + "/";
            tree.file(album + "track-" + std::to_string(10 + i % 20) + ".mp3", tagged[i % tagged.size()].bytes);
            if (i % 20 == 0) tree.file(album + "cover.png", cover);
            if (i % 100 == 0) tree.file("artist-" + std::to_string(i / 100) + "/notes.txt", "Ripped with care.\n");
        }
        tree.file("Ünï cödé/a name with blanks.mp3", tagged[0].bytes);
        src_ = tree.root(), mnt_ = *top_ / "mnt";
        const Result up = share({"start", "1", src_, mnt_});
        if (up.status != 0) why_ = "the share did not start: " + up.err;
        else started_ = true;
    }
    static void TearDownTestSuite()
    {
        if (started_) share({"stop"});
        top_.reset();
    }
    void SetUp() override
    {
        if (!why_.empty()) GTEST_SKIP() << why_;
    }

    static Result share(std::vector<std::string> args)
    {
        args.insert(args.begin(), {"/bin/bash", std::string(SONARCAT_SOURCE_DIR) + "/bench/share/share.sh"});
        Launch launch;
        // A namespace and port of this process's own: each test runs in a process of its own, maybe at once.
        const int pid = static_cast<int>(::getpid());
        for (const std::string& own : {"SC_SHARE_DIR=" + *top_ / "state", "SC_SHARE_NS=sonarcat-" + std::to_string(pid),
                                       "SC_SHARE_PORT=" + std::to_string(30000 + pid % 20000)})
            launch.env.push_back(own);
        return run(args, launch, 120);
    }
    // The text with the tree's place on the share written as on the disk, and no times.
    static std::string asLocal(std::string text)
    {
        for (size_t at; (at = text.find(mnt_)) != std::string::npos;) text.replace(at, mnt_.size(), src_);
        return maskTimes(text);
    }

    static inline std::unique_ptr<TempDir> top_;
    static inline std::string src_, mnt_, why_;
    static inline bool started_ = false;
};

// Every table, without the times (the share keeps whole seconds, and
// another creation time) and with the paths as on the disk.
std::vector<std::string> rowsOf(const Catalogue& catalogue, const std::string& src, const std::string& mnt)
{
    std::vector<std::string> all;
    for (const char* table : {"SELECT DIR_ID, PATH FROM STOR_DIR ORDER BY 1",
                              "SELECT FILE_ID, NAME, DIR_ID, FILE_NM, FILE_SZ, FILE_ER, MEDI_FM, MEDI_WI, MEDI_HE, MEDI_DU, MEDI_NF, "
                              "READ_CO FROM STOR_FILE ORDER BY 1",
                              "SELECT * FROM ID3V1 ORDER BY 1", "SELECT * FROM ID3V2 ORDER BY 1", "SELECT * FROM ID3V2_FRAME ORDER BY 1, 2",
                              "SELECT * FROM APE ORDER BY 1", "SELECT * FROM APE_ITEM ORDER BY 1, 2"})
        for (const auto& row : catalogue.rows(table)) {
            std::string line;
            for (const std::string& cell : row) line += cell + "|";
            for (size_t at; (at = line.find(mnt)) != std::string::npos;) line.replace(at, mnt.size(), src);
            all.push_back(line);
        }
    return all;
}

} // namespace

TEST_F(Share, TheReportAndTheRowsAreThoseOfTheTreeOnTheLocalDisk)
{
    Catalogue local{"SQLite"}, shared{"SQLite"};
    const Result onDisk = sonarcat({"--verbose", "--database=" + local.database(), src_});
    ASSERT_TRUE(share({"remount"}).status == 0);
    const Result overShare = sonarcat({"--verbose", "--database=" + shared.database(), mnt_});
    EXPECT_TRUE(has(overShare.out, "FILE[a name with blanks.mp3]")) << overShare.out;
    auto traces = [](const std::string& err) { return err.substr(0, err.find("Memory: ")); }; // the library's own blocks vary
    EXPECT_EQ(traces(overShare.err), traces(onDisk.err));
    auto report = [&](const std::string& out, const Catalogue& c) {
        std::string text = asLocal(out);
        for (size_t at; (at = text.find(c.database())) != std::string::npos;) text.replace(at, c.database().size(), "<catalogue>");
        return text;
    };
    EXPECT_EQ(report(overShare.out, shared), report(onDisk.out, local));
    EXPECT_EQ(rowsOf(shared, src_, mnt_), rowsOf(local, src_, mnt_));
    EXPECT_EQ(shared.count("STOR_FILE"), std::to_string(kFiles));
}

TEST_F(Share, AShareWhoseServerDiesEndsTheRunAndStoresNothingOfIt)
{
    Catalogue catalogue{"SQLite"};
    ASSERT_EQ(share({"remount"}).status, 0);
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    Program run({SONARCAT_BINARY, "--verbose", "--database=" + catalogue.database(), mnt_}, {environment(), 0, false, pipe[1]});
    ::close(pipe[1]);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    ASSERT_TRUE(run.running()) << "the output pipe did not hold the run";
    ASSERT_EQ(share({"kill"}).status, 0);
    const std::string out = drain(pipe[0]);
    const Result r = run.finish(30);
    ASSERT_FALSE(r.timedOut);
    EXPECT_TRUE(has(r.err, "IOException: Tree Unreachable [" + mnt_ + "]") || has(r.err, "Directory Failed [" + mnt_)) << r.err;
    const size_t stored = occurrences(out, "INSERT STOR_FILE [");
    EXPECT_LT(stored, kFiles);
    EXPECT_EQ(catalogue.count("STOR_FILE"), std::to_string(stored));
    EXPECT_EQ(catalogue.rows("SELECT COUNT(*) FROM STOR_FILE WHERE FILE_ER <> ''").at(0).at(0), "0");
    ASSERT_EQ(share({"start", "1", src_, mnt_}).status, 0);
    const Result update = sonarcat({"--update", "--database=" + catalogue.database(), mnt_});
    EXPECT_TRUE(has(update.out,
                    "Update: new[" + std::to_string(kFiles - stored) + "] changed[0] unchanged[" + std::to_string(stored) + "] removed[0]"))
        << update.out << update.err;
}
