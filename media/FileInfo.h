// What is gathered about one file: where it lies, its size and times, its
// media facts and tags, and the failure that stopped the reading, if any.
// The tag reader fills it, prints it and hands it to the store.
#pragma once

#include <cstdint>

#include "media/APEv2.h"
#include "media/ID3v1.h"
#include "media/ID3v2.h"
#include "media/MediaFacts.h"
#include "media/TagProperty.h"
#include "zel/DateTime.h"
#include "zel/String.h"

namespace ZELd {

struct FileInfo {
    // dir ends with "/", so that dir + name is the full path; both must
    // outlive the record.
    FileInfo(const String& dir, const String& name) : dir(dir), name(name) {}
    FileInfo(const FileInfo&) = delete;
    FileInfo& operator=(const FileInfo&) = delete;

    const String& dir;
    const String& name;
    uint64_t size = 0;
    DateTime atime;
    DateTime mtime;
    DateTime ctime;
    String notes;     // the text of the failure that stopped reading tags or media facts
    MediaFacts media; // the media report, format, width, height and duration
    ID3v1 id3v1;
    ID3v2 id3v2;
    APEv2 ape;
    // With --all-formats: every value of the file's tags under TagLib's names.
    TagProperties properties;
};

} // namespace ZELd
