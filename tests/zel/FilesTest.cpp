// File (reading, seeking, refusing what is not a regular file) and Files.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "zel/File.h"
#include "zel/Files.h"

using namespace ZELd;
using zeltest::Caught;
using zeltest::name;

namespace {

const std::string kTwenty = "0123456789abcdefghij";

// Sets access and modification time (milliseconds) of path itself, not of what a link leads to.
void setTimes(const std::string& path, long long access, long long modification)
{
    struct timeval t[2] = {{access / 1000, access % 1000 * 1000}, {modification / 1000, modification % 1000 * 1000}};
    ASSERT_EQ(::lutimes(path.c_str(), t), 0) << std::strerror(errno);
}

TEST(File, ReadSeekAndTheEnd)
{
    zeltest::TempDir dir;
    zeltest::writeFile(dir / "twenty", kTwenty);
    File f(name(dir / "twenty"), 1, 0666);
    EXPECT_EQ(f.size(), 20u);
    char buffer[160];
    ASSERT_EQ(f.read(buffer, 8), 8u);
    EXPECT_EQ(std::string(buffer, 8), "01234567");
    ASSERT_EQ(f.read(buffer, sizeof buffer), 12u); // a short read at the end
    EXPECT_EQ(std::string(buffer, 12), "89abcdefghij");
    EXPECT_EQ(f.read(buffer, sizeof buffer), 0u);

    // A place before the start stops at the start.
    struct { long long offset; int origin; long long place; } moves[] = {
        {5, 0, 5}, {3, 1, 8}, {-4, 2, 16}, {-100, 1, 0}, {7, 0, 7}, {-160, 2, 0}};
    for (const auto& m : moves) EXPECT_EQ(f.seek(m.offset, m.origin), m.place) << m.offset << "/" << m.origin;
    ASSERT_EQ(f.read(buffer, sizeof buffer), 20u);
    EXPECT_EQ(std::string(buffer, 20), kTwenty);
}

TEST(File, RefusesWhatIsNotARegularFileWithoutBlocking)
{
    zeltest::TempDir dir;
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(::mkdir((dir / "sub").c_str(), 0755), 0);
    ::alarm(10); // a FIFO without a writer would block forever: the alarm ends the run instead
    for (const char* n : {"fifo", "sub"}) {
        String path = name(dir / n);
        Caught c = zeltest::catchException<IOException>([&] { File f(path, 1, 0666); });
        EXPECT_TRUE(c.thrown && c.expectedType) << n;
        EXPECT_NE(c.message.find(path.str()), std::wstring::npos) << c.message;
    }
    ::alarm(0);
}

TEST(File, MissingFileNamesThePathAndTheSystemText)
{
    zeltest::TempDir dir;
    String path = name(dir / "no such.mp3");
    Caught c = zeltest::catchException<IOException>([&] { File f(path, 1, 0666); });
    ASSERT_TRUE(c.thrown && c.expectedType);
    EXPECT_EQ(c.systemError, ENOENT);
    const std::wstring systemText = fromNativePath(std::strerror(ENOENT)).str();
    EXPECT_EQ(c.all.rfind(L"IOException: ", 0), 0u) << c.all;
    EXPECT_NE(c.all.find(path.str()), std::wstring::npos) << c.all;
    EXPECT_NE(c.all.find(systemText), std::wstring::npos) << c.all;
    EXPECT_EQ(c.message.find(systemText), std::wstring::npos) << c.message; // toString() is the message only
}

TEST(Files, DirnameAndBasename)
{
    struct { const wchar_t *path, *dir, *base; } cases[] = {
        {L"a/b/c.mp3", L"a/b/", L"c.mp3"}, {L"c.mp3", L"", L"c.mp3"}, {L"/c.mp3", L"/", L"c.mp3"},
        {L"dir/", L"dir/", L""},           {L"", L"", L""},           {L"/", L"/", L""}};
    for (const auto& c : cases) {
        String dir = Files::dirname(c.path), base = Files::basename(c.path);
        EXPECT_EQ(dir.str(), c.dir) << c.path;
        EXPECT_EQ(base.str(), c.base) << c.path;
        EXPECT_EQ((dir + base).str(), c.path);
    }
}

TEST(Files, SizeTimeAndKindFollowLinksUnlessTheyDangle)
{
    zeltest::TempDir dir;
    zeltest::writeFile(dir / "twenty", kTwenty);
    ASSERT_EQ(::mkdir((dir / "sub").c_str(), 0755), 0);
    const std::pair<const char*, const char*> links[] = {
        {"sub", "to-sub"}, {"twenty", "to-file"}, {"nowhere-at-all", "dangling"}, {"loop", "loop"}};
    for (auto [target, link] : links)
        ASSERT_EQ(::symlink(target, (dir / link).c_str()), 0) << link;

    EXPECT_EQ(Files::size(name(dir / "twenty")), 20u);
    EXPECT_EQ(Files::size(name(dir / "to-file")), 20u);
    EXPECT_EQ(Files::size(name(dir / "dangling")), std::strlen("nowhere-at-all")); // the link itself
    EXPECT_EQ(Files::size(name(dir / "loop")), 4u);
    EXPECT_TRUE(Files::isDirectory(name(dir / "sub")));
    EXPECT_TRUE(Files::isDirectory(name(dir / "to-sub")));
    EXPECT_FALSE(Files::isDirectory(name(dir / "twenty")));
    EXPECT_FALSE(Files::isDirectory(name(dir / "dangling")));

    // Following a link may refresh its access time (relatime does when the access
    // is older than the modification), so the link's access is set after its modification.
    const long long when = 1000000000250LL; // 2001-09-09 01:46:40.250 UTC
    const long long recent = (std::time(nullptr) - 3600) * 1000LL + 125;
    setTimes(dir / "twenty", when, when + 1500);
    setTimes(dir / "dangling", recent + 7000, recent);
    long long a = 0, m = 0, c = 0;
    ASSERT_TRUE(Files::time(name(dir / "twenty"), a, m, c));
    EXPECT_EQ(a, when);
    EXPECT_EQ(m, when + 1500);
    EXPECT_GT(c, when + 1500); // birth or status change: now, not a time that was set
    ASSERT_TRUE(Files::time(name(dir / "dangling"), a, m, c));
    EXPECT_EQ(m, recent);
    EXPECT_GE(a, recent + 7000);

    String missing = name(dir / "missing");
    EXPECT_FALSE(Files::time(missing, a, m, c));
    EXPECT_FALSE(Files::isDirectory(missing));
    Caught caught = zeltest::catchException<IOException>([&] { Files::size(missing); });
    EXPECT_TRUE(caught.thrown && caught.expectedType && caught.systemError == ENOENT);
    EXPECT_NE(caught.message.find(missing.str()), std::wstring::npos) << caught.message;
}

} // namespace
