// Helpers of the zel unit tests: temporary directories, captured output, caught exceptions.
#pragma once

#include <fcntl.h>
#include <ftw.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "zel/Exception.h"
#include "zel/FileName.h"
#include "zel/Utf8.h"
#include "zel/Writer.h"

namespace ZELd {
// Readable failure messages for String values.
inline void PrintTo(const String& s, std::ostream* os) { *os << '"' << toUtf8(s.str()) << '"'; }
} // namespace ZELd

namespace zeltest {

// A fresh directory under $TMPDIR, removed with its contents at the end.
class TempDir {
public:
    TempDir()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/zel-test-XXXXXX";
        if (::mkdtemp(pattern.data())) path_ = pattern;
        EXPECT_FALSE(path_.empty()) << "mkdtemp failed";
    }
    ~TempDir()
    {
        auto remove = [](const char* p, const struct stat*, int, struct FTW*) { return ::remove(p); };
        if (!path_.empty()) ::nftw(path_.c_str(), remove, 16, FTW_DEPTH | FTW_PHYS);
    }
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline ZELd::String name(const std::string& native) { return ZELd::fromNativePath(native.data(), native.size()); }

inline void writeFile(const std::string& path, const std::string& bytes)
{
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << path;
    EXPECT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    ::close(fd);
}

// An in-memory file for writers to write to; bytes() gives all written so far.
class Capture {
public:
    Capture() : fd_(::memfd_create("zel-test", MFD_CLOEXEC)) { EXPECT_GE(fd_, 0); }
    ~Capture() { ::close(fd_); }
    int fd() const { return fd_; }
    std::string bytes() const
    {
        struct stat st;
        std::string out(::fstat(fd_, &st) == 0 ? static_cast<size_t>(st.st_size) : 0, '\0');
        ssize_t got = ::pread(fd_, out.data(), out.size(), 0);
        out.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return out;
    }

private:
    int fd_;
};

// Binds the debug report (assertions, traces) to a captured writer while it lives.
class ReportCapture {
public:
    ReportCapture() : writer_(capture_.fd(), nullptr) { ZELd::ZELDebugSetGlobalReport(&writer_); }
    ~ReportCapture() { ZELd::ZELDebugSetGlobalReport(nullptr); }
    std::string text()
    {
        writer_.flush();
        return capture_.bytes();
    }

private:
    Capture capture_;
    ZELd::FileWriter writer_;
};

// What the exception that f threw said (it is released here); E is the class expected.
struct Caught {
    bool thrown = false, expectedType = false;
    std::wstring message, all;
    int systemError = 0;
};

template <class E, class F>
Caught catchException(F&& f)
{
    Caught c;
    try {
        f();
    } catch (ZELd::Exception* e) {
        c = {true, dynamic_cast<E*>(e) != nullptr, e->toString().str(), e->toStringAll().str(), e->systemError()};
        e->destroy();
    }
    return c;
}

} // namespace zeltest
