// Writes the seed corpora: OUT/<harness>/<n>. The sample files whole, and the
// untagged ones, for tag_location; the files of the other formats for
// taglib_properties; each frame of their ID3v2 tags, after the byte that picks its
// owner, for id3v2_frame; and command lines.
//   fuzz-seeds OUT
#include <filesystem>
#include <string>

#include "TagLibExtensions.h"
#include "support/TagBuilder.h"

using namespace std::string_literals;

namespace {

std::filesystem::path out;
int counter = 0;

void seed(const std::string& harness, const std::string& bytes)
{
    std::filesystem::create_directories(out / harness);
    testsupport::writeFile(out / harness / std::to_string(counter++), bytes);
}

// Each frame of a tag at the start of the file, with the owner byte of id3v2_frame.
void frames(const std::string& file)
{
    if (file.compare(0, 3, "ID3") != 0 || file[3] < 2 || file[3] > 4) return;
    const int major = file[3], header = major == 2 ? 6 : 10, idLength = major == 2 ? 3 : 4;
    size_t end = 0;
    for (int i = 6; i < 10; ++i) end = end * 128 + static_cast<unsigned char>(file[i]);
    end = std::min(file.size(), end + 10);
    for (size_t p = 10 + ((file[5] & 0x40) ? 6 : 0); p + header <= end && file[p] >= 'A';) {
        size_t size = 0;
        for (int i = 0; i < idLength; ++i) size = size * (major == 4 ? 128 : 256) + static_cast<unsigned char>(file[p + idLength + i]);
        seed("id3v2_frame", std::string(1, static_cast<char>(major - 2 + (major == 4 ? 3 : 0))) + file.substr(p, header + size));
        p += header + size;
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) return 2;
    out = argv[1];
    for (const testsupport::Sample& s : testsupport::samples()) {
        seed("tag_location", s.bytes);
        frames(s.bytes);
    }
    for (const auto& e : std::filesystem::directory_iterator(SONARCAT_TEST_DATA))
        if (e.path().extension() == ".mp3") seed("tag_location", testsupport::readFile(e.path()));
    // The files of every other format, each under its own extension.
    for (const auto& e : std::filesystem::directory_iterator(std::string(SONARCAT_TEST_DATA) + "/formats"))
        for (size_t i = 0; i < fuzzsupport::kTagLibExtensionCount; ++i)
            if (e.path().extension() == fuzzsupport::kTagLibExtensions[i])
                seed("taglib_properties", std::string(1, static_cast<char>(i)) + testsupport::readFile(e.path()));
    for (const std::string& s :
         {"sonarcat\0-sv\0--dry-run\0/music"s, "sonarcat\0-d\0DRIVER=x\0-snv\0a\0b"s, "sonarcat\0--help"s, "sonarcat\0--verbose=yes\0x"s,
          "sonarcat\0--database= driver = ZELPostgreSQL ;PASSWORD=se=cret;SERVER=h/5432;\0."s,
          "sonarcat\0-dINSERT INTO T (A, B) VALUES (:A, :B) -- :C\nSELECT ':D', \"E?\", x::int, ?, :A\0--\0-v"s})
        seed("command_line", s);
    return 0;
}
