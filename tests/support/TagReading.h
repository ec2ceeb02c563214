// Reads the tags of bytes held in memory as the program reads a file's tags
// (TagReader::readTag, then the verbose report, here to /dev/null) and tells
// what that cost: the largest block asked for, the program's blocks left
// behind, the time. Traces of damaged tags are dropped unread.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "media/MainArguments.h"
#include "media/TagReader.h"
#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/FileName.h"
#include "zel/Writer.h"

namespace testsupport {

struct TagCost {
    size_t largest = 0; // bytes of the largest block asked for
    long long leftBlocks = 0;
    double seconds = 0;
    bool threw = false; // an Exception ended the reading, as it may for a damaged file
    bool id3v1 = false; // an ID3v1 tag was read
    // No block larger than the file's bytes held as text (four bytes a character) but for a fixed slack
    // (the path, a report line's builder): a block may not follow a size that the file cannot back.
    bool withinFile(size_t fileSize) const { return largest <= sizeof(wchar_t) * fileSize + 4096; }
};

class TagReading {
public:
    TagReading() : memory_(::memfd_create("tags", MFD_CLOEXEC)), name_(ZELd::String::valueOf(memory_))
    {
        char program[] = "sonarcat", verbose[] = "--verbose", path[] = "copy.mp3";
        char* argv[] = {program, verbose, path, nullptr};
        arguments_.parse(3, argv, true);
        ZELd::ZELDebugSetGlobalReport(&discard_);
        read(std::string(200, 'x')); // what is made once, on first use, is made here
    }
    ~TagReading()
    {
        ZELd::ZELDebugSetGlobalReport(nullptr);
        ::close(memory_);
    }

    TagCost read(const std::string& bytes)
    {
        if (::ftruncate(memory_, 0) != 0 || ::pwrite(memory_, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
            std::abort();
        TagCost cost;
        devNull_.flush(); // the report's buffer never grows for one file's report
        const size_t blocks = ZELd::ZELDebugMemory().ownBlocks;
        ZELd::ZELDebugResetLargestBlock();
        const auto start = std::chrono::steady_clock::now();
        try {
            ZELd::TagReader::FileInfo info(dir_, name_);
            reader_.readTag(dir_ + name_, info);
            reader_.print(info);
            cost.id3v1 = info.id3v1.version() == 1;
        } catch (ZELd::Exception* e) {
            cost.threw = true;
            e->destroy();
        }
        cost.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        cost.largest = ZELd::ZELDebugLargestBlock();
        cost.leftBlocks = static_cast<long long>(ZELd::ZELDebugMemory().ownBlocks) - static_cast<long long>(blocks);
        return cost;
    }

private:
    struct Discard : ZELd::Writer {
        void write(const wchar_t*, size_t) override {}
        void flush() override {}
    };

    int memory_;
    const ZELd::String dir_{L"/proc/self/fd/"}, name_;
    const int null_ = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ZELd::FileWriter devNull_{null_, nullptr};
    ZELd::MainArguments arguments_{devNull_, devNull_};
    ZELd::TagReader reader_{arguments_};
    Discard discard_;
};

} // namespace testsupport
