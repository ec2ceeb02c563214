// Builds tag bytes for tests: ID3v1, ID3v2 and APE tags, and the sample files
// with every kind of tag that the damaged-file suite and the fuzz seeds use.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/Files.h"

namespace testsupport {

inline std::string be(uint32_t v, int bytes, int bitsPerByte = 8)
{
    std::string s(bytes, '\0');
    for (int i = bytes - 1; i >= 0; --i, v >>= bitsPerByte) s[i] = static_cast<char>(v & ((1u << bitsPerByte) - 1));
    return s;
}
// Seven bits a byte, most significant first.
inline std::string syncsafe(uint32_t v, int bytes) { return be(v, bytes, 7); }
inline std::string le32(uint32_t v) { return be(__builtin_bswap32(v), 4); }
inline std::string field(const std::string& text, size_t width) { return (text + std::string(width, '\0')).substr(0, width); }

// The 128-byte tag. track < 0: a 30-byte comment without a track number.
inline std::string id3v1(const std::string& title, const std::string& artist = "", const std::string& album = "",
                         const std::string& year = "", const std::string& comment = "", int track = -1, int genre = 0)
{
    std::string t = "TAG" + field(title, 30) + field(artist, 30) + field(album, 30) + field(year, 4);
    t += track < 0 ? field(comment, 30) : field(comment, 28) + '\0' + static_cast<char>(track);
    return t + static_cast<char>(genre);
}

struct Frame {
    std::string id, body;
    uint16_t flags = 0;
};
// A text frame body: encoding byte, then the text as given.
inline std::string textBody(const std::string& text, char encoding = 0) { return encoding + text; }
// One frame; its size field seven bits a byte when syncsafe.
inline std::string frame(int major, const Frame& f, bool syncsafeSize)
{
    const int n = major == 2 ? 3 : 4;
    const uint32_t size = static_cast<uint32_t>(f.body.size());
    return f.id.substr(0, n) + (syncsafeSize ? syncsafe(size, n) : be(size, n)) + (major == 2 ? "" : be(f.flags, 2)) + f.body;
}
// The header of a tag of the major version with the flags, then the body.
inline std::string id3v2Tag(int major, const std::string& body, uint8_t flags = 0)
{
    return std::string("ID3") + static_cast<char>(major) + '\0' + static_cast<char>(flags) +
           syncsafe(static_cast<uint32_t>(body.size()), 4) + body;
}
// Header, frames and padding. Frame sizes are syncsafe in version 4 and
// plain in the others, as taggers write them, unless told otherwise.
inline std::string id3v2(int major, const std::vector<Frame>& frames, size_t padding = 0, uint8_t flags = 0, int syncsafeFrames = -1,
                         const std::string& extendedHeader = "")
{
    std::string body = extendedHeader;
    for (const Frame& f : frames) body += frame(major, f, syncsafeFrames < 0 ? major == 4 : syncsafeFrames != 0);
    return id3v2Tag(major, body + std::string(padding, '\0'), flags);
}

struct ApeItem {
    std::string key, value;
    uint32_t flags = 0;
};
constexpr uint32_t kApeHasHeader = 0x80000000u, kApeIsHeader = 0x20000000u;
inline std::string apeItem(const ApeItem& i)
{
    return le32(static_cast<uint32_t>(i.value.size())) + le32(i.flags) + i.key + '\0' + i.value;
}
inline std::string apeBlock(uint32_t version, uint32_t size, uint32_t count, uint32_t flags)
{
    return "APETAGEX" + le32(version) + le32(size) + le32(count) + le32(flags) + std::string(8, '\0');
}
// Header (when asked), items and footer. The tag size counts items and footer.
inline std::string ape(uint32_t version, const std::vector<ApeItem>& items, bool withHeader)
{
    std::string body;
    for (const ApeItem& i : items) body += apeItem(i);
    const uint32_t size = static_cast<uint32_t>(body.size() + 32), count = static_cast<uint32_t>(items.size());
    const uint32_t flags = withHeader ? kApeHasHeader : 0;
    return (withHeader ? apeBlock(version, size, count, flags | kApeIsHeader) : "") + body + apeBlock(version, size, count, flags);
}

struct Sample {
    std::string name, bytes;
};
// The files of data/tagged/ (written by real taggers) and three built for
// what they lack: an extended header, a picture with a data length indicator,
// ID3v2.2 frames, and APE tags found by header, by footer before ID3v1, and by
// a footer ending the file.
inline const std::vector<Sample>& samples()
{
    static const std::vector<Sample> all = [] {
        std::vector<Sample> out;
        for (const auto& e : std::filesystem::directory_iterator(dataFile("tagged")))
            if (e.path().extension() == ".mp3") out.push_back({e.path().stem().string(), readFile(e.path().string())});
        std::sort(out.begin(), out.end(), [](const Sample& a, const Sample& b) { return a.name < b.name; });
        const std::string png = readFile(dataFile("tagged/cover.png")), audio = readFile(dataFile("sine-1s.mp3"));
        using namespace std::string_literals;
        const std::string extended = syncsafe(6, 4) + "\x01\x00"s,
                          picture = syncsafe(static_cast<uint32_t>(png.size()), 4) + "\0image/png\0\x03"s + "cover\0"s + png;
        const std::vector<Frame> frames24 = {{"TIT2", textBody("Built title", 3)},
                                             {"COMM", "\0eng"s + "desc\0a comment"s},
                                             {"TXXX", "\x01\xFF\xFE"s + "D\0e\0s\0c\0\0\0V\0a\0l\0"s},
                                             {"APIC", picture, 1}};
        const std::vector<ApeItem> items = {
            {"Title", "Ape title"}, {"Cover Art (Front)", "cover.png\0"s + png, 2}, {"Related", "http://x/", 4}};
        out.push_back({"built-v24ext-ape2-v1", id3v2(4, frames24, 64, 0x40, -1, extended) + audio + ape(2000, items, true) +
                                                   id3v1("V1 title", "V1 artist", "V1 album", "2001", "v1 comment", 9, 17)});
        const std::vector<Frame> frames22 = {
            {"TT2", textBody("Two two")}, {"COM", "\0engd\0comment"s}, {"PIC", "\0PNG\x03"s + "desc\0"s + png}};
        out.push_back({"built-v22-ape1last", id3v2(2, frames22, 32) + audio + ape(1000, {{"Title", "Ape one"}, {"Track", "3"}}, false)});
        out.push_back({"built-ape2first-v1",
                       ape(2000, {{"Title", "First"}, {"Comment", "a\0b"s}}, true) + audio + id3v1("V1 only", "", "", "1990", "", 1, 1)});
        return out;
    }();
    return all;
}

} // namespace testsupport
