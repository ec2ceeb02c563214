// How many files the program reads at once, and how: the media probes (one
// helper process each), the directories read ahead (one thread each), and
// whether a probe reads the file's tag bytes too.
//
// On a local disk a file's reads cost microseconds: a helper for each core
// the program may use keeps the cores busy, and the program reads the tags
// and the directories itself at their turn. On a network share every open
// and read is a round trip of milliseconds, and the cores mostly wait: many
// more files are probed at once (8 for each core, at most 16), a helper
// reads the tag bytes of the MP3 file it probes from the descriptor the
// library reads, so that each file is opened once, and the directories that
// come next are read ahead. --jobs sets the number of files, and has the
// tags and directories read ahead, on any medium.
#pragma once

#include "zel/String.h"

namespace ZELd {

struct FilesInFlight {
    unsigned probes = 1;   // helper processes
    unsigned readers = 0;  // threads reading the directories ahead; none: each at its turn
    bool tagBytes = false; // the probes read the tag bytes

    // For the tree at path, with `jobs` files at once (0: as its medium suits).
    static FilesInFlight forTree(const String& path, unsigned jobs);
};

} // namespace ZELd
