// Writes the generated seeds: OUT/<harness>/<name> for each harness, made with
// the tag builder of the tests, and the frames of the tagged sample files.
//   fuzz-seeds OUT TAGGED_DIR
#include <filesystem>
#include <string>
#include <vector>

#include "support/TagBuilder.h"

namespace fs = std::filesystem;
using namespace std::string_literals;
using tagfix::Frame;
using tagfix::textBody;

namespace {

fs::path out;
int counter = 0;

void seed(const std::string& harness, const std::string& bytes)
{
    fs::create_directories(out / harness);
    tagfix::writeFile(out / harness / ("gen-" + std::to_string(counter++)), bytes);
}

std::string byte(int b) { return std::string(1, static_cast<char>(b)); }

// Frames of every kind the reader tells apart, with 3- or 4-byte ids.
std::vector<Frame> frames(int major)
{
    const std::string utf16 = "\xFF\xFE" "C\0a\0f\0\xE9\0"s;
    std::vector<Frame> v4 = {
        {"TIT2", textBody("Hello")},
        {"TPE1", textBody(utf16 + "\0\0"s, 1)},
        {"TALB", textBody("\0A\0l\0b"s, 2)},
        {"TCON", textBody("Caf\xC3\xA9", 3)},
        {"TXXX", textBody("desc\0value"s)},
        {"COMM", "\x01" "eng" + utf16 + "\0\0"s + utf16},
        {"USLT", "\x00" "deu" "Strophe\0Line"s},
        {"WXXX", "\x00" "home\0http://example.org/"s},
        {"WOAR", "http://example.org/artist"},
        {"APIC", "\x00" "image/png\0\x03" "cover\0\x89PNG\r\n"s},
        {"GEOB", "\x00" "text/plain\0file.txt\0desc\0data"s},
        {"PRIV", "owner\0\x01\x02\x03"s},
        {"UFID", "http://example.org\0id-1234"s},
        {"AENC", "owner\0\x00\x10\x00\x20"s},
        {"IPLS", textBody("role\0name"s)},
        {"MCDI", "\x01\x02\x03\x04"},
    };
    if (major != 2) return v4;
    return {
        {"TT2", textBody("Hello")},      {"TP1", textBody(utf16, 1)},
        {"TXX", textBody("d\0v"s)},      {"COM", "\x00" "eng" "d\0text"s},
        {"ULT", "\x00" "XXX" "d\0l"s},   {"WXX", "\x00" "d\0http://x/"s},
        {"PIC", "\x00" "PNG\x03" "d\0\x89PNG"s},
        {"GEO", "\x00" "a/b\0f\0d\0x"s}, {"CRA", "owner\0\x01"s},
        {"UFI", "owner\0id"s},           {"IPL", textBody("a\0b"s)},
    };
}

// The frames of a real tag, each as its own bytes.
void realFrames(const std::string& file)
{
    if (file.size() < 10 || file.compare(0, 3, "ID3") != 0 || file[3] < 3) return; // 10-byte frame headers only
    const int major = file[3];
    const size_t end = std::min(file.size(), 10 + (size_t{static_cast<unsigned char>(file[6])} << 21 |
                                                    size_t{static_cast<unsigned char>(file[7])} << 14 |
                                                    size_t{static_cast<unsigned char>(file[8])} << 7 | static_cast<unsigned char>(file[9])));
    const int selector = (major == 2 ? 0 : major == 3 ? 1 : 2) + (major == 4 ? 3 : 0); // 2.4 sizes: seven bits a byte
    for (size_t p = 10; p + 10 <= end && file[p] != 0;) {
        size_t size = 0;
        for (int i = 4; i < 8; ++i) size = size * (major == 4 ? 128 : 256) + static_cast<unsigned char>(file[p + i]);
        seed("id3v2_frame", byte(selector) + file.substr(p, 10 + size));
        p += 10 + size;
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    out = argv[1];

    seed("id3v1", tagfix::id3v1("Title", "Artist", "Album", "1999", "Comment", 7, 17));
    seed("id3v1", tagfix::id3v1("  Blank  ", "Art\xE9", "", "20", std::string(30, 'c')));
    seed("id3v1", tagfix::id3v1(std::string(30, 'T'), std::string(30, 'A'), std::string(30, 'B'), "2024", "x", 255, 255));

    for (int major = 2; major <= 4; ++major) {
        const int selector8 = major - 2, selector7 = major - 2 + 3;
        for (const Frame& f : frames(major)) {
            seed("id3v2_frame", byte(selector8) + tagfix::frame(major, f, false));
            seed("id3v2_frame", byte(selector7) + tagfix::frame(major, f, true));
        }
        const std::string tag = tagfix::id3v2(major, frames(major), 16);
        seed("id3v2", tag);
        seed("id3v2", tag + std::string(64, '\xFF'));
        seed("id3v2", tagfix::id3v2(major, frames(major), 0, 0, major == 4 ? 0 : 1)); // the other size reading
        const std::string extended = tagfix::syncsafe(10, 4) + "\x01\x00\x00\x00\x00\x00"s;
        seed("id3v2", tagfix::id3v2(major, {{major == 2 ? "TT2" : "TIT2", textBody("x")}}, 4, 0x40, -1, extended));
    }

    const std::string audio(512, '\xFF');
    const std::string v1 = tagfix::id3v1("Title", "Artist");
    const std::vector<tagfix::ApeItem> items = {{"Title", "Caf\xC3\xA9"}, {"Artist", "Latin \xE9"}, {"Cover", "\x00\x01\x02"s, 2},
                                                {"Link", "http://example.org/", 4}};
    const std::string apeWithHeader = tagfix::ape(2000, items, true), apeFooterOnly = tagfix::ape(1000, items, false);
    seed("ape", "\x00"s + apeWithHeader + audio);
    seed("ape", "\x01"s + audio + apeFooterOnly);
    seed("ape", "\x02"s + audio + apeWithHeader + v1);
    seed("ape", "\x03"s + audio + apeWithHeader + v1);
    seed("ape", "\x03"s + apeWithHeader + audio);

    const std::string v23 = tagfix::id3v2(3, frames(3), 32), v22 = tagfix::id3v2(2, frames(2));
    seed("tag_location", v23 + audio + apeWithHeader + v1);
    seed("tag_location", v22 + audio + apeFooterOnly);
    seed("tag_location", apeWithHeader + audio + v1);
    seed("tag_location", audio + apeWithHeader);

    for (const std::string& s : {"Caf\xC3\xA9 \xE6\x97\xA5\xF0\x9F\x8E\xB5"s, "\xFF\xFE" "a\0\x3D\xD8\x35\xDF"s,
                                 "\xFE\xFF\xD8\x3D\xDF\x35\x00" "a"s, "\xC0\xAF\xED\xA0\x80\xF4\x90\x80\x80"s, "plain ascii\ttext\n"s})
        seed("decoders", s);

    for (const std::string& s : {"sonarcat\0-v\0tests/data"s, "sonarcat\0--summary\0--verbose\0--dry-run\0/music"s,
                                 "sonarcat\0--database=DRIVER=ZELSQLite3;DATABASE=m.sqlite3\0."s, "sonarcat\0-d\0DRIVER=x\0-snv\0a\0b"s,
                                 "sonarcat\0-dDRIVER=x\0--\0-v"s, "sonarcat\0--help"s, "sonarcat\0--version"s, "/usr/bin/sonarcat\0--database"s,
                                 "sonarcat\0--verbose=yes\0x"s, "sonarcat\0-x"s, "\xFF\xFE\0\xC3\xA9"s})
        seed("options", s);

    for (const std::string& s : {"DRIVER=ZELSQLite3;DATABASE=music.sqlite3"s,
                                 "DRIVER=ZELPostgreSQL;USER=me;PASSWORD=se=cret;SERVER=localhost/5432; port = 5432 ;DATABASE=music;"s,
                                 "DRIVER={ODBC Driver 18 for SQL Server};Server=localhost,1433;UID=sa;PWD=Secret1!"s,
                                 "INSERT INTO T (A, B) VALUES (:A, :B) -- :C\nSELECT ':D', \"E?\", x::int, ?, :A"s,
                                 "UPDATE T SET A = ? WHERE B = :b_1 AND C = '?"s})
        seed("connection_string", s);

    for (const auto& entry : fs::directory_iterator(argv[2]))
        if (entry.path().extension() == ".mp3") realFrames(tagfix::readFile(entry.path()));
    return 0;
}
