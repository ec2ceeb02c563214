// The file being probed, held open by the program while the MediaInfo
// library looks at it. The library opens a file by its name once for every
// format it tries, and looks at the name again for its size and dates: a
// text file costs it more than a hundred opens, each a round trip to the
// server on a network share. While a ProbedFile lives, the library's opens
// of its name for reading are served from the one descriptor: each gets a
// descriptor number of its own with a position of its own, read at that
// position, and a look at the name answers what the descriptor answered
// when it was held. The library reads the same bytes in the same order and
// reports what it reports of the file opened by name.
#pragma once

#include <string>

namespace ZELd {

class ProbedFile {
public:
    // name: the bytes the library passes when it opens the file; fd: the
    // file, open for reading, which stays the caller's. Only one file is
    // served at a time.
    ProbedFile(std::string name, int fd);
    ~ProbedFile();
    ProbedFile(const ProbedFile&) = delete;
    ProbedFile& operator=(const ProbedFile&) = delete;

    // How many opens of the name were served so far.
    unsigned opens() const;
};

} // namespace ZELd
