// The library's opens of the probed file, served from the one descriptor the
// program holds: the library reports what it reports of the file opened by
// name, and each open reads and seeks on its own.
#define ZEL_SOURCE "tests/media/ProbedFileTest"
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "media/ProbedFile.h"
#include "support/Files.h"

using namespace ZELd;
using namespace testsupport;

namespace {

// The library's full report of a file it opens by name, through its plain interface.
std::wstring reportByName(const std::string& name)
{
    void* library = ::dlopen("libmediainfo.so.0", RTLD_NOW);
    if (!library) return L"no library";
    auto create = reinterpret_cast<void* (*)()>(::dlsym(library, "MediaInfo_New"));
    auto open = reinterpret_cast<size_t (*)(void*, const wchar_t*)>(::dlsym(library, "MediaInfo_Open"));
    auto inform = reinterpret_cast<const wchar_t* (*)(void*, size_t)>(::dlsym(library, "MediaInfo_Inform"));
    auto remove = reinterpret_cast<void (*)(void*)>(::dlsym(library, "MediaInfo_Delete"));
    void* handle = create();
    std::wstring report = open(handle, std::wstring(name.begin(), name.end()).c_str()) ? inform(handle, 0) : L"not opened";
    remove(handle);
    ::dlclose(library);
    return report;
}

// The file opened, then taken away from its name: only a served open finds it there.
int holdAndTakeAway(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    return fd >= 0 && ::rename(path.c_str(), (path + ".away").c_str()) == 0 ? fd : -1;
}

} // namespace

TEST(ProbedFile, TheLibraryReportsWhatItReportsOfTheFileOpenedByName)
{
    TempDir dir;
    const std::string track = readFile(dataFile("sine-3s-stereo.mp3")), cover = readFile(dataFile("tagged/cover.png"));
    const struct {
        const char* name;
        std::string bytes;
    } cases[] = {
        {"track.mp3", track},
        {"tagged.mp3", readFile(dataFile("tagged/mutagen-v24-utf8.mp3"))},
        {"cut.mp3", track.substr(0, 1000)},
        {"cover.png", cover},
        {"cover.mp3", cover},        // its extension names another format
        {"notes.txt", "ten bytes!"}, // no format claims it: every one is tried
        {"empty.mp3", ""},
    };
    for (const auto& c : cases) {
        const std::string path = dir.path() + "/" + c.name;
        writeFile(path, c.bytes);
        const std::wstring expected = reportByName(path);
        const int fd = holdAndTakeAway(path);
        ASSERT_GE(fd, 0) << c.name;
        ProbedFile* served = new ProbedFile(path, fd);
        EXPECT_EQ(reportByName(path), expected) << c.name;
        EXPECT_GE(served->opens(), 1u) << c.name;
        delete served;
        ::close(fd);
    }
}

TEST(ProbedFile, EachOpenReadsAndSeeksOnItsOwn)
{
    TempDir dir;
    const std::string path = dir.path() + "/a.bin";
    writeFile(path, "0123456789");
    const int fd = holdAndTakeAway(path);
    ASSERT_GE(fd, 0);
    {
        ProbedFile served(path, fd);
        struct stat facts;
        ASSERT_EQ(::stat(path.c_str(), &facts), 0);
        EXPECT_EQ(facts.st_size, 10);
        FILE* a = ::fopen64(path.c_str(), "rb");
        FILE* b = ::fopen64(path.c_str(), "rb");
        ASSERT_TRUE(a && b);
        EXPECT_EQ(::fopen64(path.c_str(), "r+b"), nullptr); // not for writing: the name is gone
        char x[5] = {}, y[5] = {};
        EXPECT_EQ(::read(::fileno(a), x, 4), 4);
        EXPECT_EQ(::read(::fileno(b), y, 4), 4);
        EXPECT_EQ(std::string(x) + std::string(y), "01230123");
        EXPECT_EQ(::lseek64(::fileno(a), -3, SEEK_END), 7);
        EXPECT_EQ(::read(::fileno(a), x, 4), 3);
        EXPECT_EQ(std::string(x, 3), "789");
        EXPECT_EQ(::read(::fileno(a), x, 4), 0);
        EXPECT_EQ(::lseek64(::fileno(b), 0, SEEK_CUR), 4);
        EXPECT_EQ(::lseek64(::fileno(b), -5, SEEK_CUR), -1);
        EXPECT_EQ(errno, EINVAL);
        // A closed open's number, taken by another file, reads that file.
        const int number = ::fileno(a);
        ::fclose(a);
        const int zero = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(::dup2(zero, number), number);
        EXPECT_EQ(::read(number, x, 4), 4);
        EXPECT_EQ(std::string(x, 4), std::string(4, '\0'));
        ::close(number), ::close(zero);
        EXPECT_EQ(::read(::fileno(b), y, 4), 4);
        EXPECT_EQ(std::string(y, 4), "4567");
        ::fclose(b);
    }
    struct stat facts;
    EXPECT_NE(::stat(path.c_str(), &facts), 0); // no longer served
    ::close(fd);
}
