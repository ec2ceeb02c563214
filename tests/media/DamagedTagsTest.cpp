// What reading the tags of a damaged file may allocate: the reader of the
// program (TagReader::readTag, then the verbose report of what it found) over
// the copies of tests/e2e/DamagedFilesTest.cpp, with the debug allocator
// noting the largest block asked for. A size field is never trusted beyond
// the file: no block may be larger than the file, but for the fixed slack
// below.
#define ZEL_SOURCE "tests/media/DamagedTagsTest"
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>

#include "media/MainArguments.h"
#include "media/TagReader.h"
#include "support/DamagedCopies.h"
#include "support/TempDir.h"
#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/FileName.h"
#include "zel/Writer.h"

using namespace ZELd;

namespace {

// Traces and assertions of damaged tags are expected; they are dropped
// without being kept, which would allocate.
struct Discard : Writer {
    void write(const wchar_t*, size_t) override {}
    void flush() override {}
};

struct Descriptor {
    int fd;
    ~Descriptor() { ::close(fd); }
};

// The options of a verbose run whose report goes to /dev/null, and the debug
// report bound to nothing for as long as they live.
class Options {
public:
    Options()
    {
        char program[] = "sonarcat", verbose[] = "--verbose", path[] = "copy.mp3";
        char* argv[] = {program, verbose, path, nullptr};
        parsed = arguments.parse(3, argv, true);
        ZELDebugSetGlobalReport(&discard);
    }
    ~Options() { ZELDebugSetGlobalReport(nullptr); }
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;

    Descriptor null{::open("/dev/null", O_WRONLY | O_CLOEXEC)};
    FileWriter devNull{null.fd, nullptr};
    MainArguments arguments{devNull, devNull};
    Discard discard;
    bool parsed = false;
};

using damaged::sources;

// The tag bodies are read whole, so the file bounds the largest block. The
// slack is for the blocks that do not grow with the file: the path as text,
// the record's strings, the builder of one report line (4 bytes a character,
// its capacity doubled as it grows). On these copies they stay below 1.1 KB;
// a size taken from a damaged field asks for megabytes.
constexpr size_t kSlack = 4096;

// The largest block asked for while the tags of the file are read and
// reported. A failure that ends the reading (a key that is not ASCII) is the
// program's to record; what it allocated before counts all the same.
size_t readTags(TagReader& reader, const String& dir, const String& name)
{
    ZELDebugResetLargestBlock();
    try {
        TagReader::FileInfo info(dir, name);
        reader.readTag(dir + name, info);
        reader.print(info);
    } catch (Exception* e) {
        e->destroy();
    }
    return ZELDebugLargestBlock();
}

class DamagedTags : public ::testing::TestWithParam<size_t> {};

TEST_P(DamagedTags, NoBlockIsLargerThanTheFile)
{
    const damaged::Source& source = sources()[GetParam()];
    Options r;
    ASSERT_TRUE(r.parsed);
    TagReader reader(r.arguments);
    testsupport::TempDir dir;
    const String dirName = fromNativePath((dir.path() + "/").c_str());
    const String name(L"copy.mp3");

    // Reading the intact file asks for a block at least as large as the tag
    // body at its start: the record sees what the readers allocate.
    tagfix::writeFile(dir / "copy.mp3", source.bytes);
    readTags(reader, dirName, name); // what is made once, on first use, is made here
    r.devNull.flush();
    size_t body = 0;
    if (source.bytes.compare(0, 3, "ID3") == 0) body = damaged::bigWord(source.bytes, 6, 4, 7);
    else if (source.bytes.compare(0, 8, "APETAGEX") == 0) body = damaged::littleWord(source.bytes, 12);
    EXPECT_GE(readTags(reader, dirName, name), body) << "the tag body is not seen";

    long long worst = -1000000;
    std::string worstName;
    int failures = 0;
    for (const damaged::Damage& d : damaged::representative(source.bytes)) {
        const std::string bytes = d.apply(source.bytes);
        tagfix::writeFile(dir / "copy.mp3", bytes);
        r.devNull.flush();
        const size_t largest = readTags(reader, dirName, name);
        const long long excess = static_cast<long long>(largest) - static_cast<long long>(bytes.size());
        if (excess > worst) {
            worst = excess;
            worstName = d.what + " size " + std::to_string(bytes.size()) + " largest " + std::to_string(largest);
        }
        if (largest > bytes.size() + kSlack && ++failures <= 10)
            ADD_FAILURE() << source.name << " " << d.what << ": a block of " << largest << " bytes for a file of " << bytes.size();
    }
    std::printf("[ damaged  ] %s: a block exceeds its file by at most %lld bytes (%s)\n", source.name.c_str(), worst, worstName.c_str());
}

INSTANTIATE_TEST_SUITE_P(Tagged, DamagedTags, ::testing::Range<size_t>(0, sources().size()),
                         [](const ::testing::TestParamInfo<size_t>& info) { return damaged::testName(info.param); });

} // namespace
