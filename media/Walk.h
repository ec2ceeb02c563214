// The walk over a directory tree that the normal run and the census share.
//
// Entries come in the order Dir yields them (names in byte order); a
// subdirectory is walked completely where it is met, "." and ".." never are.
// The caller decides what a file and a subdirectory are worth.
//
// What ends the walk, and what does not: a directory that cannot be opened
// or read, and any failure that a caller's handler lets through (the size or
// times of a file, its report, the start of a transaction) leave walkTree as
// exceptions, and the run driver reports them after the walk has stopped.
// A failure to read one file's tags or media facts, or to store its rows, is
// caught by the caller for that file alone: it goes into the file's notes or
// onto the error output, and the walk goes on with the next entry.
#pragma once

#include "zel/Dir.h"
#include "zel/String.h"

namespace ZELd {

// Whether the walk goes into a directory entry: never "." nor "..".
inline bool walksInto(const Dir::Entry& entry) { return entry.name().compare(L"..", entry.name().length()) != 0; }

// onFile(dir, name) for every entry that is not a directory (dir.path() ends
// with "/", and dir tells what follows the entry); onDirectory(path) for every
// subdirectory.
template <class OnFile, class OnDirectory>
void walkTree(const String& path, OnFile onFile, OnDirectory onDirectory)
{
    Dir dir(path);
    Dir::Entry entry;
    while (dir.read(entry)) {
        const String& name = entry.name();
        if (!entry.isDir()) onFile(static_cast<const Dir&>(dir), name);
        else if (walksInto(entry)) onDirectory(dir.path() + name);
    }
}

} // namespace ZELd
