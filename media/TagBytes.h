// The bytes of an MP3 file that its tags take, read from the file opened
// ahead of its turn (File::Ahead), so that the tags are then read from memory:
// a small file whole; of a larger one its start and the piece before its end
// (which hold TagLocation's 32 and 160 bytes), and an ID3v2 or APE tag at the
// start or an APE tag ending the file whole when it reaches further. A probe
// reads them from the descriptor that the MediaInfo library reads, so that
// the file is opened once (ProbeResult::tagBytes).
#pragma once

#include "zel/File.h"

namespace ZELd {

struct TagBytes {
    // Reads the tag bytes of the file opened in ahead into it; false on a
    // read error.
    static bool read(File::Ahead& ahead);
};

} // namespace ZELd
