// The tag bytes read ahead of a file's turn: every read of its tags falls
// within them, whatever the tags' layout and size; and the window hands each
// MP3 file to its turn once, leaving nothing open behind.
#define ZEL_SOURCE "tests/media/TagBytesAheadTest"
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "media/MainArguments.h"
#include "media/TagBytesAhead.h"
#include "media/TagReader.h"
#include "support/Files.h"
#include "support/ReportCapture.h"
#include "support/TagBuilder.h"
#include "zel/FileName.h"
#include "zel/Writer.h"

using namespace ZELd;
using namespace testsupport;
using namespace std::string_literals;

namespace {

size_t openDescriptors() { return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})); }

// A reader of tags whose report goes nowhere.
class Tags {
public:
    Tags()
    {
        char program[] = "sonarcat", path[] = "x.mp3";
        char* argv[] = {program, path, nullptr};
        arguments_.parse(2, argv, true);
    }
    // The three tags of the file as the reader read them.
    std::wstring of(File& file)
    {
        TagReader::FileInfo info(L"/", L"x.mp3");
        reader_.readTag(file, info);
        return info.id3v2.toString().str() + L"|" + info.ape.toString().str() + L"|" + info.id3v1.toString().str();
    }

private:
    const int null_ = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    FileWriter devNull_{null_, nullptr};
    MainArguments arguments_{devNull_, devNull_};
    TagReader reader_{arguments_};
};

} // namespace

TEST(TagBytesAhead, EveryReadOfTheTagsFallsWithinTheBytesReadAhead)
{
    TempDir dir;
    const std::string audio = readFile(dataFile("sine-1s.mp3")), filler(300 * 1024, '\0'), blob(100 * 1024, 'b'),
                      picture = "\0image/png\0\x03"s + "cover\0"s + std::string(200 * 1024, 'p');
    std::vector<Sample> cases = samples(); // small: read whole
    cases.push_back({"ID3v2 past the first piece",
                     id3v2(3, {{"TIT2", textBody("Big")}, {"APIC", picture}}) + audio + filler + id3v1("V1", "", "", "", "", 2)});
    cases.push_back(
        {"APE before ID3v1, past the last piece", audio + filler + ape(2000, {{"Title", "T"}, {"Blob", blob, 2}}, true) + id3v1("V1")});
    cases.push_back({"APE ending the file", audio + filler + ape(1000, {{"Title", "One"}, {"Track", "3"}}, false)});
    cases.push_back({"APE first, past the first piece", ape(2000, {{"Title", "First"}, {"Blob", blob, 2}}, true) + audio + filler});
    cases.push_back({"ID3v2 longer than the file", "ID3\x03\0\0"s + syncsafe(0x0FFFFFFF, 4) + filler});
    ReportCapture traces; // of the damaged tags
    Tags tags;
    const std::string empty = dir.path() + "/empty";
    writeFile(empty, "");
    for (const Sample& c : cases) {
        const std::string path = dir.path() + "/" + c.name + ".mp3";
        writeFile(path, c.bytes);
        File plain(fromNativePath(path.c_str()), File::kRead, File::kMode);
        const std::wstring expected = tags.of(plain);
        File::Ahead ahead;
        ASSERT_TRUE(TagBytesAhead::read(path, ahead)) << c.name;
        EXPECT_LE(ahead.head.size() + ahead.tail.size(), std::max<size_t>(c.bytes.size(), 256 * 1024)) << c.name;
        // The file under the descriptor is now empty: a read beyond the bytes kept finds nothing.
        const int nothing = ::open(empty.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(::dup2(nothing, ahead.fd), ahead.fd);
        ::close(nothing);
        File early(fromNativePath(path.c_str()), std::move(ahead));
        EXPECT_EQ(tags.of(early), expected) << c.name;
    }
}

TEST(TagBytesAhead, EachMP3FileIsHandedToItsTurnOnceAndNothingStaysOpen)
{
    TempDir dir;
    const size_t before = openDescriptors();
    std::vector<WalkedFile> files(40);
    for (size_t i = 0; i < files.size(); ++i) {
        WalkedFile& f = files[i];
        f.dir = fromNativePath((dir.path() + "/").c_str());
        f.name = String::format(i % 5 == 4 ? L"cover-%02zu.jpg" : L"track-%02zu.MP3", i);
        f.path = nativePath(f.fullPath());
        writeFile(f.path, std::string(1000 + i, static_cast<char>('a' + i % 26)));
        f.facts = Files::examine(AT_FDCWD, f.path.c_str());
    }
    ::unlink(files[7].path.c_str());      // gone since the walk: opened at its turn, where it fails
    files[8].facts.modification -= 1000; // changed since the walk: read at its turn
    {
        TagBytesAhead ahead(3);
        size_t received = 0;
        for (size_t i = 0; i < files.size(); ++i) {
            std::vector<const WalkedFile*> next;
            for (size_t j = i + 1; j < files.size(); ++j) next.push_back(&files[j]);
            ahead.turn(files[i], next);
            if (i == 0) usleep(200 * 1000); // the window is read meanwhile
            if (i % 6 == 5) continue;       // a file whose turn ends before its tags are read
            std::unique_ptr<File> file = ahead.take(files[i]);
            const bool expected = i % 5 != 4 && i != 7 && i != 8;
            if (!expected) {
                EXPECT_EQ(file, nullptr) << i;
                continue;
            }
            if (!file) continue; // not read yet at its turn
            ++received;
            std::string bytes(file->size(), '\0');
            EXPECT_EQ(file->read(bytes.data(), bytes.size()), 1000 + i);
            EXPECT_EQ(bytes, std::string(1000 + i, static_cast<char>('a' + i % 26))) << i;
        }
        ahead.turn(files.back(), {});
        EXPECT_GT(received, 0u);
    }
    EXPECT_EQ(openDescriptors(), before);
}
