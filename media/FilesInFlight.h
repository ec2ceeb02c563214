// How many files the program reads at once: the media probes (one helper
// process each), the tag bytes and the directories read ahead (one thread
// each, for each).
//
// On a local disk a file's reads cost microseconds: a helper for each core
// the program may use keeps the cores busy, and the program reads the tags
// of each file itself at its turn. On a network share every open and read is
// a round trip of milliseconds, and the cores mostly wait: many more files
// are read at once (8 for each core, at most 16), and their tags and
// directories too, ahead of their turn. --jobs sets the number of files on any medium, tags and
// probes.
#pragma once

#include "zel/String.h"

namespace ZELd {

struct FilesInFlight {
    unsigned probes = 1;  // helper processes
    unsigned readers = 0; // threads reading ahead, tag bytes and directories; none: each at its turn

    // For the tree at path, with `jobs` files at once (0: as its medium suits).
    static FilesInFlight forTree(const String& path, unsigned jobs);
};

} // namespace ZELd
