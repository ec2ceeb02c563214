// File: reading, seeking, and refusing what is not a regular file.
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "zel/File.h"

using namespace ZELd;
using zeltest::name;

namespace {

TEST(File, ReadSeekAndTheEnd)
{
    const std::string twenty = "0123456789abcdefghij";
    zeltest::TempDir dir;
    std::ofstream(dir / "twenty", std::ios::binary) << twenty;
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
    EXPECT_EQ(std::string(buffer, 20), twenty);
}

TEST(File, RefusesWhatIsNotARegularFileWithoutBlocking)
{
    zeltest::TempDir dir;
    ASSERT_EQ(::mkfifo((dir / "fifo").c_str(), 0600), 0);
    ASSERT_EQ(::mkdir((dir / "sub").c_str(), 0755), 0);
    ::alarm(10); // a FIFO without a writer would block forever: the alarm ends the run instead
    for (const char* n : {"fifo", "sub"}) EXPECT_TRUE(zeltest::throws<IOException>([&] { File f(name(dir / n), 1, 0666); })) << n;
    ::alarm(0);
}

} // namespace
