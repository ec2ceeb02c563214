// How far a run is, on one status line on standard error: the files
// examined so far, how many a second, and the directory being walked. It is
// shown only when standard error is a terminal and standard output is not
// (the report goes to a file), rewritten at most ten times a second, erased
// before each error line and drawn again after it, and erased at the end;
// nothing of it is written anywhere else.
#pragma once

#include <ctime>

#include "zel/StatusLine.h"
#include "zel/String.h"

namespace ZELd {

class FileWriter;

class Progress {
public:
    // Shows the status on errout's terminal while it lives, when it is to be shown.
    explicit Progress(FileWriter& errout);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // One more file examined, in dir. Costs a clock read that makes no system call.
    static void file(const String& dir);

private:
    void count(const String& dir);

    FileWriter& errout_;
    StatusLine line_;
    unsigned long long files_ = 0;
    timespec start_{}, drawn_{};
};

} // namespace ZELd
