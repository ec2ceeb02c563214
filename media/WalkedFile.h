// One file that the walk met: where it lies, one look's worth of facts about
// it, and, in an update of the catalogue, what becomes of it. Made once, as
// the walk reads ahead; the tags, the probe, the report and the rows take it
// from here.
#pragma once

#include <string>
#include <vector>

#include "media/RecordId.h"
#include "zel/Files.h"
#include "zel/String.h"

namespace ZELd {

struct WalkedFile {
    // What an update does with the file: reads a new one, reads a changed one
    // in place of its records, passes an unchanged one by.
    enum class Verdict { New, Changed, Unchanged };

    String dir;       // ends with "/"
    String name;      // the entry's name in dir
    std::string path; // dir + name as the system takes it: bytes
    // dir + name as the catalogue stores it (UTF-8, a stray byte as U+FFFD):
    // what an update matches records by; empty outside an update.
    std::string stored;
    FileFacts facts; // its size and times, or why it could not be examined
    Verdict verdict = Verdict::New;
    std::vector<RecordId> replaced; // a changed file's records

    String fullPath() const { return dir + name; }
};

} // namespace ZELd
