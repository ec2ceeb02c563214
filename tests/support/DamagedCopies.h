// Damaged copies of tagged MP3 files: cut short at chosen lengths, or with a
// version, size or flags field of a tag overwritten by an extreme value. The
// fields are found by walking the tags of the intact file the way its tagger
// wrote them, so that each overwrite hits the field its name says.
//
// The sources are the files of data/tagged/ (written by real taggers) and a
// few files built here from data/sine-1s.mp3 for what those lack: APE tags
// (found by a header at the start, by a footer before ID3v1, by a footer
// ending the file), an extended header, ID3v2.2 frames.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/TagBuilder.h"

namespace damaged {

// One damaged copy: the first `length` bytes of the original, with `patch`
// laid over them at `offset`.
struct Damage {
    std::string what; // short and file-name safe: "cut-1234", "frame2-TALB-size-b1-80"
    size_t length = 0;
    size_t offset = 0;
    std::string patch = {};

    std::string apply(const std::string& original) const
    {
        std::string bytes = original.substr(0, length);
        if (!patch.empty()) bytes.replace(offset, patch.size(), patch);
        return bytes;
    }
};

struct Source {
    std::string name; // without ".mp3"
    std::string bytes;
};

// ---- the fields of the tags of an intact file ------------------------------

// A field of a tag in the intact file and the values laid over it.
struct Field {
    std::string what;
    size_t offset;
    size_t width;
    bool perByte = false;   // each byte alone as well as the whole field
    bool bigEndian = true;  // for the 32-bit patterns with one high bit
    std::vector<uint8_t> values = {0x00, 0x7F, 0x80, 0xFF};
};

inline uint32_t bigWord(const std::string& f, size_t at, size_t n, unsigned bitsPerByte)
{
    uint32_t v = 0;
    for (size_t i = 0; i < n; ++i) v = (v << bitsPerByte) | (static_cast<uint8_t>(f[at + i]) & ((1u << bitsPerByte) - 1));
    return v;
}

inline uint32_t littleWord(const std::string& f, size_t at)
{
    uint32_t v = 0;
    for (size_t i = 4; i-- > 0;) v = (v << 8) | static_cast<uint8_t>(f[at + i]);
    return v;
}

inline std::string tagOf(const std::string& text)
{
    std::string s;
    for (char c : text) s += (std::isalnum(static_cast<unsigned char>(c)) ? c : '_');
    return s;
}

// The ID3v2 header, extended header and frame headers at the start.
inline void id3v2Fields(const std::string& f, std::vector<Field>& out)
{
    if (f.size() < 10 || f.compare(0, 3, "ID3") != 0) return;
    const int major = static_cast<uint8_t>(f[3]);
    out.push_back({"id3v2-version", 3, 1});
    out.push_back({"id3v2-revision", 4, 1});
    out.push_back({"id3v2-flags", 5, 1});
    out.push_back({"id3v2-size", 6, 4, true});
    const size_t end = std::min<size_t>(f.size(), 10 + bigWord(f, 6, 4, 7));
    size_t p = 10;
    if ((f[5] & 0x40) && p + 6 <= end) {
        out.push_back({"ext-size", p, 4, true});
        if (major == 4) {
            // Length counts the whole extended header; a count of flag bytes follows.
            out.push_back({"ext-flagbytes", p + 4, 1});
            out.push_back({"ext-flags", p + 5, 1});
            p += bigWord(f, p, 4, 7);
        } else {
            // Length counts what follows it: flags, and the padding size.
            out.push_back({"ext-flags", p + 4, 2, true});
            if (p + 10 <= end) out.push_back({"ext-padding", p + 6, 4, true});
            p += 4 + bigWord(f, p, 4, 8);
        }
    }
    const size_t idLength = major == 2 ? 3 : 4;
    const size_t headerLength = major == 2 ? 6 : 10;
    for (int n = 0; p + headerLength <= end && f[p] >= 'A' && f[p] <= 'Z'; ++n) {
        const std::string name = "frame" + std::to_string(n) + "-" + tagOf(f.substr(p, idLength));
        const uint32_t size = bigWord(f, p + idLength, idLength, major == 4 ? 7 : 8);
        out.push_back({name + "-id", p, 1});
        out.push_back({name + "-size", p + idLength, idLength, true});
        if (headerLength == 10) out.push_back({name + "-flags", p + 8, 2, true});
        // The first body byte is the text encoding of most frames.
        if (size > 0 && p + headerLength < end)
            out.push_back({name + "-body0", p + headerLength, 1, false, true, {0x00, 0x01, 0x02, 0x03, 0x7F, 0x80, 0xFF}});
        p += headerLength + size;
    }
}

// Every APE header and footer, and the item headers between them.
inline void apeFields(const std::string& f, std::vector<Field>& out)
{
    std::vector<size_t> walked;
    for (size_t at = f.find("APETAGEX"); at != std::string::npos && at + 32 <= f.size(); at = f.find("APETAGEX", at + 1)) {
        const uint32_t size = littleWord(f, at + 12);
        const bool isHeader = littleWord(f, at + 20) & 0x20000000u;
        const std::string name = isHeader ? "ape-header" : "ape-footer";
        for (auto [what, offset] : {std::pair{"-version", 8}, {"-size", 12}, {"-count", 16}, {"-flags", 20}})
            out.push_back({name + what, at + offset, 4, true, false});
        if (size < 32) continue;
        const size_t begin = isHeader ? at + 32 : (at >= size - 32 ? at - (size - 32) : 0);
        const size_t end = isHeader ? std::min(f.size(), at + size) : at;
        if (std::find(walked.begin(), walked.end(), begin) != walked.end()) continue;
        walked.push_back(begin);
        int n = 0;
        for (size_t q = begin; q + 8 < end; ++n) {
            const size_t keyEnd = f.find('\0', q + 8);
            if (keyEnd == std::string::npos || keyEnd >= end) break;
            const std::string item = "item" + std::to_string(n);
            out.push_back({item + "-size", q, 4, true, false});
            out.push_back({item + "-flags", q + 4, 4, true, false});
            out.push_back({item + "-keyend", keyEnd, 1, false, true, {0x7F, 0x80, 0xFF}});
            q = keyEnd + 1 + littleWord(f, q);
        }
    }
}

// The fields of an ID3v1 tag ending the file.
inline void id3v1Fields(const std::string& f, std::vector<Field>& out)
{
    if (f.size() < 128 || f.compare(f.size() - 128, 3, "TAG") != 0) return;
    const size_t base = f.size() - 128;
    for (auto [what, offset, width] : {std::tuple{"v1-title", 3, 30}, {"v1-artist", 33, 30}, {"v1-album", 63, 30},
                                       {"v1-year", 93, 4}, {"v1-comment", 97, 30}, {"v1-zerobyte", 125, 1},
                                       {"v1-track", 126, 1}, {"v1-genre", 127, 1}})
        out.push_back({what, base + offset, static_cast<size_t>(width)});
}

inline std::vector<Field> tagFields(const std::string& f)
{
    std::vector<Field> out;
    id3v2Fields(f, out);
    apeFields(f, out);
    id3v1Fields(f, out);
    return out;
}

// ---- the damaged copies ----------------------------------------------------

inline std::string hex(uint8_t v)
{
    char s[3];
    std::snprintf(s, sizeof s, "%02x", v);
    return s;
}

// Every field filled with each extreme byte; 32-bit fields also with only the
// sign bit and with all bits but the sign bit; the fields read as numbers also
// one byte at a time. A copy equal to the original is left out.
inline std::vector<Damage> overwrites(const std::string& f)
{
    std::vector<Damage> out;
    auto add = [&](const std::string& what, size_t offset, const std::string& patch) {
        if (f.compare(offset, patch.size(), patch) != 0) out.push_back({what, f.size(), offset, patch});
    };
    for (const Field& field : tagFields(f)) {
        for (uint8_t v : field.values) add(field.what + "-all-" + hex(v), field.offset, std::string(field.width, static_cast<char>(v)));
        if (field.width == 4) {
            std::string sign("\x80\0\0\0", 4), most("\x7F\xFF\xFF\xFF", 4);
            if (!field.bigEndian) {
                std::reverse(sign.begin(), sign.end());
                std::reverse(most.begin(), most.end());
            }
            add(field.what + "-sign", field.offset, sign);
            add(field.what + "-max", field.offset, most);
        }
        if (field.perByte && field.width > 1)
            for (size_t i = 0; i < field.width; ++i)
                for (uint8_t v : field.values)
                    add(field.what + "-b" + std::to_string(i) + "-" + hex(v), field.offset + i, std::string(1, static_cast<char>(v)));
    }
    return out;
}

inline Damage cut(size_t length) { return {"cut-" + std::to_string(length), length}; }

// Every length from 0 to the whole file.
inline std::vector<Damage> everyCut(size_t size)
{
    std::vector<Damage> out;
    for (size_t n = 0; n <= size; ++n) out.push_back(cut(n));
    return out;
}

// Where a tag begins or ends in the intact file.
inline std::vector<size_t> tagEdges(const std::string& f)
{
    std::vector<size_t> edges;
    if (f.size() >= 10 && f.compare(0, 3, "ID3") == 0) edges.push_back(10 + bigWord(f, 6, 4, 7));
    for (size_t at = f.find("APETAGEX"); at != std::string::npos; at = f.find("APETAGEX", at + 1)) {
        edges.push_back(at);
        edges.push_back(at + 32);
    }
    if (f.size() >= 128 && f.compare(f.size() - 128, 3, "TAG") == 0) edges.push_back(f.size() - 128);
    return edges;
}

// The lengths where reading changes: every one within `edge` bytes of either
// end (the first 32 and the last 160 bytes are read whole) and within `near`
// bytes of where a tag begins or ends; a stride through the rest, the audio.
inline std::vector<Damage> cutsNearTags(const std::string& f, size_t edge = 192, size_t near = 16, size_t stride = 257)
{
    const size_t size = f.size();
    std::vector<bool> chosen(size + 1, false);
    for (size_t n = 0; n <= size; ++n) chosen[n] = n <= edge || n + edge >= size || n % stride == 0;
    for (size_t e : tagEdges(f))
        for (size_t n = e > near ? e - near : 0; n <= std::min(size, e + near); ++n) chosen[n] = true;
    std::vector<Damage> out;
    for (size_t n = 0; n <= size; ++n)
        if (chosen[n]) out.push_back(cut(n));
    return out;
}

// ---- the sources -----------------------------------------------------------

inline std::string dataFile(const std::string& name) { return std::string(SONARCAT_TEST_DATA) + "/" + name; }

// ID3v2.4 with an extended header and a picture with a data length
// indicator, the audio, an APE version 2 tag with header, then ID3v1.1.
inline std::string builtFull()
{
    using namespace tagfix;
    const std::string png = readFile(dataFile("tagged/cover.png"));
    const std::string extended = syncsafe(6, 4) + std::string("\x01\x00", 2);
    const std::string pictureLength = syncsafe(static_cast<uint32_t>(png.size()), 4);
    const std::string id3 = id3v2(4,
                                  {{"TIT2", textBody("Built title", 3)},
                                   {"TPE1", textBody("Built artist")},
                                   {"COMM", std::string("\0eng", 4) + "desc" + '\0' + "a comment"},
                                   {"TXXX", std::string("\x01\xFF\xFE" "D\0e\0s\0c\0\0\0" "V\0a\0l\0", 19)},
                                   {"APIC", pictureLength + std::string("\0image/png\0\x03" "cover\0", 18) + png, 0x0001}},
                                  64, 0x40, -1, extended);
    const std::string apeTag = ape(2000,
                                   {{"Title", "Ape title"},
                                    {"Artist", "Ape artist"},
                                    {"Year", "2001"},
                                    {"Cover Art (Front)", "cover.png" + std::string(1, '\0') + png, 2},
                                    {"Related", "http://example.org/", 4}},
                                   true);
    return id3 + readFile(dataFile("sine-1s.mp3")) + apeTag + id3v1("V1 title", "V1 artist", "V1 album", "2001", "v1 comment", 9, 17);
}

// ID3v2.2 with a picture, the audio, then an APE version 1 tag (footer only)
// ending the file.
inline std::string builtV22ApeLast()
{
    using namespace tagfix;
    const std::string png = readFile(dataFile("tagged/cover.png"));
    const std::string id3 = id3v2(2,
                                  {{"TT2", textBody("Two two")},
                                   {"TP1", textBody("Artist")},
                                   {"COM", std::string("\0eng", 4) + "d" + '\0' + "comment"},
                                   {"PIC", std::string("\0PNG\x03" "desc\0", 10) + png}},
                                  32);
    return id3 + readFile(dataFile("sine-1s.mp3")) + ape(1000, {{"Title", "Ape one"}, {"Track", "3"}}, false);
}

// An APE version 2 tag at the start (header first), the audio, ID3v1.
inline std::string builtApeFirst()
{
    using namespace tagfix;
    return ape(2000, {{"Title", "First"}, {"Album", "Ape album"}, {"Comment", std::string("a\0b", 3)}}, true) + readFile(dataFile("sine-1s.mp3")) +
           id3v1("V1 only", "", "", "1990", "", 1, 1);
}

// The files of data/tagged/ in name order, then the built ones; made once.
inline const std::vector<Source>& sources()
{
    static const std::vector<Source> all = [] {
        std::vector<Source> out;
        for (const auto& entry : std::filesystem::directory_iterator(dataFile("tagged")))
            if (entry.path().extension() == ".mp3") out.push_back({entry.path().stem().string(), tagfix::readFile(entry.path().string())});
        std::sort(out.begin(), out.end(), [](const Source& a, const Source& b) { return a.name < b.name; });
        out.push_back({"built-v24ext-ape2-v1", builtFull()});
        out.push_back({"built-v22-ape1last", builtV22ApeLast()});
        out.push_back({"built-ape2first-v1", builtApeFirst()});
        return out;
    }();
    return all;
}

// A source's name as a test name.
inline std::string testName(size_t source)
{
    std::string name = sources()[source].name;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

// The copies of the fast suites: the cuts near the tags and every overwrite.
inline std::vector<Damage> representative(const std::string& f)
{
    std::vector<Damage> out = cutsNearTags(f);
    std::vector<Damage> more = overwrites(f);
    out.insert(out.end(), more.begin(), more.end());
    return out;
}

// The name of the index-th copy: the index leads, so that a directory walk
// in byte order meets the copies in the order of the list.
inline std::string fileName(size_t index, const Source& source, const Damage& damage)
{
    char number[24];
    std::snprintf(number, sizeof number, "%06zu", index);
    return std::string(number) + "-" + source.name + "-" + damage.what + ".mp3";
}

} // namespace damaged
