// Questions about paths.
#pragma once

#include "zel/String.h"

namespace ZELd {

class Files {
public:
    // True for a directory or a link to one.
    static bool isDirectory(const String& path);
    // Size in bytes; a dangling link gives the link's own size. Throws IOException.
    static unsigned long long size(const String& path);
    // Access, modification and creation time, in milliseconds since
    // 1970-01-01 UTC. Creation is the birth time where the file system records
    // one, else the status-change time. False when the path cannot be examined.
    static bool time(const String& path, long long& access, long long& modification, long long& creation);
    // "dir/sub/" of "dir/sub/name": everything up to the last "/", or empty.
    static String dirname(const String& path);
    // "name" of "dir/sub/name"; dirname(p) + basename(p) == p.
    static String basename(const String& path);
};

} // namespace ZELd
