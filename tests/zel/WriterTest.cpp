// FileWriter (UTF-8 output, buffering, tie, line flush, failures) and Numbers.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "zel/Numbers.h"
#include "zel/Writer.h"

using namespace ZELd;

namespace {

// All that was written to fd, an in-memory file.
std::string bytes(int fd)
{
    std::string out(static_cast<size_t>(::lseek(fd, 0, SEEK_END)), '\0');
    out.resize(static_cast<size_t>(std::max<ssize_t>(0, ::pread(fd, out.data(), out.size(), 0))));
    return out;
}

TEST(FileWriter, WritesUtf8AndRestoresEscapedBytes)
{
    const int fd = ::memfd_create("zel-test", MFD_CLOEXEC), large = ::memfd_create("zel-test", MFD_CLOEXEC);
    ASSERT_GE(std::min(fd, large), 0);
    {
        FileWriter w(fd, nullptr);
        w << L"é€\U0001F600|" << String(L"bad\xDCFF.mp3") << L'|' << -42 << L'|' << 18446744073709551615ULL << endl;
        w.printf(L"%ls=%d;%s", L"año", 7, "x\xFF");
        EXPECT_EQ(bytes(fd), "") << "nothing leaves before a flush";
    } // the destructor writes what is left
    EXPECT_EQ(bytes(fd), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80|bad\xFF.mp3|-42|18446744073709551615\na\xC3\xB1o=7;x\xFF");

    FileWriter w(large, nullptr); // more than its buffer holds
    for (int i = 0; i < 300; ++i) w << std::wstring(999, L'é') << endl;
    w.flush();
    EXPECT_EQ(bytes(large).size(), 300u * (999 * 2 + 1));
    ::close(fd);
    ::close(large);
}

TEST(FileWriter, TieAndLineFlushKeepTwoWritersOnOnePipeInOrder)
{
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_CLOEXEC | O_NONBLOCK), 0);
    std::string seen; // everything read from the pipe so far
    auto take = [&] {
        char b[256];
        for (ssize_t n; (n = ::read(fds[0], b, sizeof b)) > 0;) seen.append(b, static_cast<size_t>(n));
        return seen;
    };
    {
        FileWriter out(fds[1], nullptr), err(fds[1], nullptr);
        err.tie(&out);
        err.setLineFlush(true);
        out << L"one" << endl;
        EXPECT_EQ(take(), ""); // the output writer keeps its lines
        err << L"two" << endl; // flushes the output writer first, then its own line
        EXPECT_EQ(take(), "one\ntwo\n");
        out << L"three" << endl;
        err << L"four"; // not a whole line yet
        EXPECT_EQ(take(), "one\ntwo\nthree\n");
    }
    EXPECT_EQ(take(), "one\ntwo\nthree\nfour");
    ::close(fds[0]);
    ::close(fds[1]);
}

TEST(FileWriter, AFailedWriteIsReportedOnce)
{
    int readOnly = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(readOnly, 0);
    {
        FileWriter w(readOnly, nullptr);
        w << L"lost";
        EXPECT_TRUE(zeltest::throws<IOException>([&] { w.flush(); }));
        w << L"also lost";
        EXPECT_FALSE(zeltest::throws<IOException>([&] { w.flush(); }));
    } // nor does the destructor throw
    ::close(readOnly);
}

TEST(Numbers, Parse)
{
    struct { const wchar_t* text; int radix; uint32_t fallback, value; } cases[] = {
        {L"1999", 10, 0, 1999},
        {L"", 10, 7, 7},
        {L"12abc", 10, 0, 12},
        {L"12abc", 16, 0, 0x12ABC},
        {L"  42 ", 10, 0, 42},
        {L"+5", 10, 0, 5},
        {L"-3", 10, 9, 9},
        {L"101", 2, 0, 5},
        {L"5", 1, 3, 3},
        {L"5", 37, 3, 3},
        {L"4294967295", 10, 0, UINT32_MAX},
        {L"4294967296", 10, 0, UINT32_MAX},
        {L"99999999999999999999999", 10, 0, UINT32_MAX},
    };
    for (const auto& c : cases) EXPECT_EQ(UInt32::parse(c.text, c.radix, c.fallback), c.value) << c.text;
    EXPECT_EQ(UInt64::parse(L"18446744073709551615", 10, 0), UINT64_MAX);
    EXPECT_EQ(UInt64::parse(L"18446744073709551616", 10, 0), UINT64_MAX);
    EXPECT_EQ(UInt64::parse(L"4294967296", 10, 0), 4294967296ULL);
}

} // namespace
