// The 128-byte ID3v1 tag at the end of an MP3 file, with the ID3v1.1 track number.
#pragma once

#include "zel/File.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class ID3v1 : public Object {
public:
    ID3v1() = default;

    // data: the 128 tag bytes. False, with the object unchanged, when they do not begin with "TAG".
    bool read(const char* data);
    // Reads the last 128 bytes of the file.
    bool read(File& file);

    // 1 once a tag has been read, else 0.
    signed char version() const { return version_; }
    const String& title() const { return title_; }
    const String& artist() const { return artist_; }
    const String& album() const { return album_; }
    const String& year() const { return year_; }
    const String& comment() const { return comment_; }
    signed char track() const { return track_; }
    signed char genre() const { return genre_; }

    String toString() const override;
    const std::type_info& typeInfo() const override { return typeid(ID3v1); }

private:
    signed char version_ = 0;
    String identifier_;
    String title_;
    String artist_;
    String album_;
    String year_;
    String comment_;
    signed char track_ = 0;
    signed char genre_ = 0;
};

} // namespace ZELd
