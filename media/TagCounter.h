// The census of --summary: how many files carry each kind of tag, judged
// only by the magic bytes at both ends of each ".mp3" file.
#pragma once

#include <cstdint>

#include "zel/String.h"

namespace ZELd {

class MainArguments;

class TagCounter {
public:
    TagCounter() = default;

    TagCounter& operator+=(TagCounter other);
    // "ID3v1[%d] ID3v22[%d] ID3v23[%d] ID3v24[%d] APEv1[%d] APEv2[%d] error[%d]"
    String toString() const;

    // Examines one file; exceptions of the file operations pass to the caller.
    static void read(const String& path, TagCounter& counter);
    // Examines every ".mp3" file below a directory; a file that cannot be
    // examined is counted as an error and reported, and the walk goes on.
    static void readDir(const String& path, TagCounter& counter, const MainArguments& args);

    int32_t id3v1() const { return id3v1_; }
    int32_t id3v22() const { return id3v22_; }
    int32_t id3v23() const { return id3v23_; }
    int32_t id3v24() const { return id3v24_; }
    int32_t apev1() const { return apev1_; }
    int32_t apev2() const { return apev2_; }
    int32_t errors() const { return errors_; }

private:
    int32_t id3v1_ = 0;
    int32_t id3v22_ = 0;
    int32_t id3v23_ = 0;
    int32_t id3v24_ = 0;
    int32_t apev1_ = 0;
    int32_t apev2_ = 0;
    int32_t errors_ = 0;
};

} // namespace ZELd
