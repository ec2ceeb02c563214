// Builds tag bytes for tests: ID3v1, ID3v2 and APE tags, and files made of them.
#pragma once

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace tagfix {

inline std::string be(uint32_t v, int bytes)
{
    std::string s(bytes, '\0');
    for (int i = bytes - 1; i >= 0; --i, v >>= 8) s[i] = static_cast<char>(v & 0xFF);
    return s;
}

// Seven bits a byte, most significant first.
inline std::string syncsafe(uint32_t v, int bytes)
{
    std::string s(bytes, '\0');
    for (int i = bytes - 1; i >= 0; --i, v >>= 7) s[i] = static_cast<char>(v & 0x7F);
    return s;
}

inline std::string le32(uint32_t v)
{
    std::string s(4, '\0');
    for (int i = 0; i < 4; ++i, v >>= 8) s[i] = static_cast<char>(v & 0xFF);
    return s;
}

inline std::string field(const std::string& text, size_t width)
{
    std::string s = text.substr(0, width);
    s.resize(width, '\0');
    return s;
}

// The 128-byte tag. track < 0: a 30-byte comment without a track number.
inline std::string id3v1(const std::string& title, const std::string& artist = "", const std::string& album = "",
                         const std::string& year = "", const std::string& comment = "", int track = -1, int genre = 0)
{
    std::string t = "TAG" + field(title, 30) + field(artist, 30) + field(album, 30) + field(year, 4);
    if (track < 0) t += field(comment, 30);
    else t += field(comment, 28) + std::string(1, '\0') + std::string(1, static_cast<char>(track));
    t += static_cast<char>(genre);
    return t;
}

struct Frame {
    std::string id;
    std::string body;
    uint16_t flags = 0;
};

// A text frame body: encoding byte, then the text as given.
inline std::string textBody(const std::string& text, char encoding = 0) { return std::string(1, encoding) + text; }

// One frame; the size field is written with seven bits a byte when syncsafe.
inline std::string frame(int major, const Frame& f, bool syncsafeSize)
{
    const int n = major == 2 ? 3 : 4;
    uint32_t size = static_cast<uint32_t>(f.body.size());
    std::string s = f.id.substr(0, n) + (syncsafeSize ? syncsafe(size, n) : be(size, n));
    if (major != 2) s += be(f.flags, 2);
    return s + f.body;
}

// Header, frames and padding. Frame sizes are syncsafe in version 4 and plain
// in the others, as taggers write them, unless told otherwise.
inline std::string id3v2(int major, const std::vector<Frame>& frames, size_t padding = 0, uint8_t flags = 0, int syncsafeFrames = -1,
                         const std::string& extendedHeader = "")
{
    bool ss = syncsafeFrames < 0 ? major == 4 : syncsafeFrames != 0;
    std::string body = extendedHeader;
    for (const Frame& f : frames) body += frame(major, f, ss);
    body += std::string(padding, '\0');
    return std::string("ID3") + static_cast<char>(major) + '\0' + static_cast<char>(flags) + syncsafe(static_cast<uint32_t>(body.size()), 4) + body;
}

struct ApeItem {
    std::string key;
    std::string value;
    uint32_t flags = 0;
};

inline std::string apeItem(const ApeItem& i) { return le32(static_cast<uint32_t>(i.value.size())) + le32(i.flags) + i.key + '\0' + i.value; }

inline std::string apeBlock(uint32_t version, uint32_t size, uint32_t count, uint32_t flags)
{
    return "APETAGEX" + le32(version) + le32(size) + le32(count) + le32(flags) + std::string(8, '\0');
}

constexpr uint32_t kApeHasHeader = 0x80000000u;
constexpr uint32_t kApeIsHeader = 0x20000000u;

// Header (when asked), items and footer. The tag size counts items and footer.
inline std::string ape(uint32_t version, const std::vector<ApeItem>& items, bool withHeader)
{
    std::string body;
    for (const ApeItem& i : items) body += apeItem(i);
    uint32_t size = static_cast<uint32_t>(body.size() + 32);
    uint32_t count = static_cast<uint32_t>(items.size());
    uint32_t flags = withHeader ? kApeHasHeader : 0;
    std::string s;
    if (withHeader) s += apeBlock(version, size, count, flags | kApeIsHeader);
    return s + body + apeBlock(version, size, count, flags);
}

inline std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

} // namespace tagfix
