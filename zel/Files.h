// Questions about paths.
#pragma once

#include <sys/types.h>

#include "zel/String.h"

namespace ZELd {

// What one look at a file tells: its size and its access, modification and
// creation times, in milliseconds since 1970-01-01 UTC (creation is the
// birth time where the file system records one, else the status-change
// time), and its type.
struct FileFacts {
    unsigned long long size = 0;
    long long access = 0, modification = 0, creation = 0;
    unsigned mode = 0; // st_mode: the type and the permission bits
    dev_t device = 0;  // st_dev and st_ino: which file it is
    ino_t inode = 0;
    int error = 0;     // why the file could not be examined (errno); 0: it was
    int linkError = 0; // why a link could not be followed (it dangles or loops): the facts are the link's own

    bool known() const { return error == 0; }
};

class Files {
public:
    // True for a directory or a link to one.
    static bool isDirectory(const String& path);
    // True when the file system that holds path is reached over a network
    // or through a process (NFS, SMB, FUSE such as sshfs, 9P, Ceph, AFS, ...):
    // there every open and read is a round trip.
    static bool onNetwork(const String& path);
    // One statx of the path, following a link, or of the link itself when it
    // dangles; a native name is taken relative to the open directory dirFd.
    static FileFacts examine(const String& path);
    static FileFacts examine(int dirFd, const char* nativeName);
    // "dir/sub/" of "dir/sub/name": everything up to the last "/", or empty.
    static String dirname(const String& path);
    // "name" of "dir/sub/name"; dirname(p) + basename(p) == p.
    static String basename(const String& path);
};

} // namespace ZELd
