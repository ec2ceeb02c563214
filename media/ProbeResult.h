// What one MediaInfo probe of a file gives, wherever it was made, and how it
// crosses the pipe from a helper process to the program.
#pragma once

#include <cstddef>
#include <string>

#include "media/MediaFacts.h"
#include "media/TagProperty.h"
#include "zel/File.h"
#include "zel/String.h"

namespace ZELd {

class Exception;

// What the file system says of a file when it is probed, to tell whether it
// changed before its turn.
struct FileStamp {
    unsigned long long size = 0;
    long long modification = 0; // milliseconds
    bool known = false;         // false: the file could not be examined; matches nothing

    bool matches(const FileStamp& other) const { return known && other.known && size == other.size && modification == other.modification; }
};

struct ProbeResult {
    FileStamp seen; // the file as it was just before the probe
    MediaFacts facts;
    bool failed = false;
    // The helper that made the probe timed out or died: the failure stands
    // whatever the file looks like at its turn.
    bool final = false;
    String reason; // the failure's text without the path ("MediaInfo Open Failed")
    int systemError = 0;
    std::wstring traces; // what the probe wrote to the debug report, to be written at the file's turn
    // The tag bytes of the file, read from the descriptor that the probe
    // opened (TagBytes), when they were asked for and no more than a
    // message may carry; without the descriptor.
    bool hasTagBytes = false;
    File::Ahead tagBytes;
    // The file's tags as TagLib reads them (TagLibProperties), when they were
    // asked for (the program asks for those of files whose names TagLib
    // reads); propertiesFailure: why TagLib could not read them ("TagLib Read Failed").
    TagProperties properties;
    String propertiesFailure;
    bool hasProperties() const { return !properties.empty() || !propertiesFailure.isEmpty(); }

    // What a probe is asked to bring besides the media facts.
    enum Asks : uint8_t { kFactsOnly = 0, kTagBytes = 1, kProperties = 2 };
    // Probes the file in the calling process; with kTagBytes, reads its tag
    // bytes too; with kProperties, its tags through TagLib.
    static ProbeResult probe(const String& path, uint8_t asks = kFactsOnly);
    // A probe that never answered: a final failure.
    static ProbeResult lost(const String& reason);
    // The failure as the probe throws it in the program: IOException naming the path.
    Exception* failure(const String& path) const;

    // Appends the result to bytes as one message.
    void encode(std::string& bytes) const;
    // Takes one message from the front of [p, p + n): the bytes it took, or 0
    // when the message is not complete yet. Throws IOException for bytes that
    // are no message.
    static size_t decode(const char* p, size_t n, ProbeResult& out);
};

} // namespace ZELd
