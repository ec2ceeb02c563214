// FileWriter (UTF-8 output, buffering, tie, line flush, failures) and Numbers.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "zel/Numbers.h"

using namespace ZELd;

namespace {

TEST(FileWriter, WritesUtf8AndRestoresEscapedBytes)
{
    zeltest::Capture capture;
    {
        FileWriter w(capture.fd(), nullptr);
        w << L"é€\U0001F600|" << String(L"bad\xDCFF.mp3") << L'|' << -42 << L'|' << 18446744073709551615ULL << endl;
        w.printf(L"%ls=%d;%s", L"año", 7, "x");
        EXPECT_EQ(capture.bytes(), "") << "nothing leaves before a flush";
    } // the destructor writes what is left
    EXPECT_EQ(capture.bytes(),
              "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80|bad\xFF.mp3|-42|18446744073709551615\na\xC3\xB1o=7;x");

    zeltest::Capture large;
    FileWriter w(large.fd(), nullptr);
    for (int i = 0; i < 300; ++i) w << std::wstring(999, L'é') << endl;
    w.flush();
    EXPECT_EQ(large.bytes().size(), 300u * (999 * 2 + 1));
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
        zeltest::Caught c = zeltest::catchException<IOException>([&] { w.flush(); });
        EXPECT_TRUE(c.thrown && c.expectedType);
        EXPECT_EQ(c.systemError, EBADF);
        w << L"also lost";
        EXPECT_FALSE(zeltest::catchException<IOException>([&] { w.flush(); }).thrown);
    } // nor does the destructor throw
    ::close(readOnly);
}

TEST(Numbers, Parse)
{
    struct { const wchar_t* text; int radix; uint32_t fallback, value; } cases[] = {
        {L"1999", 10, 0, 1999}, {L"", 10, 7, 7},           {L"12abc", 10, 0, 12},    {L"12abc", 16, 0, 0x12ABC},
        {L"  42 ", 10, 0, 42},  {L"+5", 10, 0, 5},         {L"-3", 10, 9, 9},        {L"abc", 10, 9, 9},
        {L"101", 2, 0, 5},      {L"5", 1, 3, 3},           {L"5", 37, 3, 3},         {L"4294967295", 10, 0, UINT32_MAX},
        {L"4294967296", 10, 0, UINT32_MAX},                {L"99999999999999999999999", 10, 0, UINT32_MAX},
    };
    for (const auto& c : cases) EXPECT_EQ(UInt32::parse(c.text, c.radix, c.fallback), c.value) << c.text;
    EXPECT_EQ(UInt64::parse(L"18446744073709551615", 10, 0), UINT64_MAX);
    EXPECT_EQ(UInt64::parse(L"18446744073709551616", 10, 0), UINT64_MAX);
    EXPECT_EQ(UInt64::parse(L"4294967296", 10, 0), 4294967296ULL);
    EXPECT_EQ(UInt64::parse(L"x", 10, 11), 11u);
}

} // namespace
