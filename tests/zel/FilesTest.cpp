// Directories closed out of turn, two writers on one pipe, a writer that fails.
#define ZEL_SOURCE "tests/zel/FilesTest"
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "support/Files.h"
#include "support/ReportCapture.h"
#include "zel/Dir.h"
#include "zel/Exception.h"
#include "zel/FileName.h"
#include "zel/Writer.h"

using namespace ZELd;

namespace {

String name(const std::string& native) { return fromNativePath(native.c_str()); }

TEST(Dir, ClosedOutOfTurnOnlyTheOpenOnesCount)
{
    testsupport::TempDir dir;
    ::mkdir((dir / "a").c_str(), 0755);
    ::mkdir((dir / "b").c_str(), 0755);
    ASSERT_EQ(::symlink("../a", (dir / "b/to-a").c_str()), 0);
    std::unique_ptr<Dir> outer(ZEL_NEW Dir(name(dir / "a"))), inner(ZEL_NEW Dir(name(dir / "b")));
    outer.reset(); // closed before the one opened after it: a is no longer above b
    Dir::Entry e;
    ASSERT_TRUE(inner->read(e));
    EXPECT_TRUE(e.isDir()) << "to-a is not yielded as a directory";
    inner.reset();
    Dir again(name(dir / "b"));
    ASSERT_TRUE(again.read(e) && e.isDir()) << "a closed directory is left in the chain";
}

TEST(FileWriter, TwoWritersOnOnePipeKeepTheirOrderAndAFailureIsReportedOnce)
{
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_CLOEXEC | O_NONBLOCK), 0);
    std::string seen;
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
        EXPECT_EQ(take(), "");
        err << L"two" << endl; // the output writer first, then the line
        EXPECT_EQ(take(), "one\ntwo\n");
        err << L"three";
        EXPECT_EQ(take(), "one\ntwo\n") << "not a whole line yet";
    }
    EXPECT_EQ(take(), "one\ntwo\nthree");
    ::close(fds[0]);
    ::close(fds[1]);

    const int readOnly = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    FileWriter w(readOnly, nullptr);
    int failures = 0;
    for (const wchar_t* text : {L"lost", L"also lost"})
        failures += testsupport::thrown<IOException>([&] { (w << text).flush(); }).has_value();
    EXPECT_EQ(failures, 1) << "a failed writer says so once";
    ::close(readOnly);
}

} // namespace
