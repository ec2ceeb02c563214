// The tag bytes read ahead of a file's turn: every read of its tags falls
// within them, whatever the tags' layout and size.
#define ZEL_SOURCE "tests/media/TagBytesTest"
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "media/MainArguments.h"
#include "media/TagBytes.h"
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

TEST(TagBytes, EveryReadOfTheTagsFallsWithinTheBytesReadAhead)
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
        ASSERT_TRUE(ahead.open(path.c_str()) && TagBytes::read(ahead)) << c.name;
        EXPECT_LE(ahead.head.size() + ahead.tail.size(), std::max<size_t>(c.bytes.size(), 256 * 1024)) << c.name;
        // The file under the descriptor is now empty: a read beyond the bytes kept finds nothing.
        const int nothing = ::open(empty.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(::dup2(nothing, ahead.fd), ahead.fd);
        ::close(nothing);
        File early(fromNativePath(path.c_str()), std::move(ahead));
        EXPECT_EQ(tags.of(early), expected) << c.name;
    }
}
