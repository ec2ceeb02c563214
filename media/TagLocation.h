// Where the tags of an MP3 file lie, judged by their magic bytes in the first
// 32 and the last 160 bytes of the file: the one look at both ends that the
// tag reader, the census and the APE reader share.
//
//   offset 0 of the file: "ID3" (an ID3v2 header) or "APETAGEX" (an APE header)
//   tail offset 0:        "APETAGEX", an APE footer followed by an ID3v1 tag  (the footer at -160)
//   tail offset 32:       "TAG", an ID3v1 tag in the last 128 bytes
//   tail offset 128:      "APETAGEX", an APE footer ending the file           (the footer at -32)
#pragma once

#include <cstring>

#include "media/APEHeader.h"
#include "zel/File.h"

namespace ZELd {

struct TagLocation {
    static constexpr size_t kHead = 32, kTail = 160;

    char head[kHead] = {};
    char tail[kTail] = {};
    bool hasHead = false; // the file holds the 32 bytes
    bool hasTail = false; // the file holds the 160 bytes

    // Reads 32 bytes where the file stands (its start, for a file just
    // opened); readTail then reads the last 160 (all of a smaller file),
    // leaving the file's place where it was.
    explicit TagLocation(File& file) { hasHead = file.read(head, kHead) == kHead; }
    void readTail(File& file) { hasTail = file.readAt(file.size() > kTail ? file.size() - kTail : 0, tail, kTail) == kTail; }

    bool id3v2() const { return hasHead && std::memcmp(head, "ID3", 3) == 0; }
    bool apeHeader() const { return hasHead && APEHeader::at(head); }
    // The APE footer at the end and its position from the end (-160 before an
    // ID3v1 tag, -32 ending the file); null when there is none.
    const char* apeFooter(long long& position) const
    {
        if (!hasTail) return nullptr;
        if (APEHeader::at(tail)) return position = -160, tail;
        if (APEHeader::at(tail + 128)) return position = -32, tail + 128;
        return nullptr;
    }
    // The 128 bytes of an ID3v1 tag; null when there is none.
    const char* id3v1() const { return hasTail && std::memcmp(tail + 32, "TAG", 3) == 0 ? tail + 32 : nullptr; }
};

} // namespace ZELd
