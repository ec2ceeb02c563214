// The media facts of one file that its record keeps, as the MediaInfo
// library gives them: the cleaned report, the container format, and the
// picture size and play time of the first video stream, else of the first
// audio stream (play time only), else of the first image (size only).
#pragma once

#include <cstdint>

#include "zel/Files.h"
#include "zel/String.h"

namespace ZELd {

struct MediaFacts {
    String inform;
    String format;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t duration = 0; // seconds

    // Probes the file, as the caller just looked at it (Files::examine), and
    // opened for reading (fd, or -1: opened here); throws what MediaInfo
    // throws ("MediaInfo Open Failed").
    static MediaFacts probe(const String& path, const FileFacts& facts, int fd = -1);
};

} // namespace ZELd
