// The tags of an MP3 file as the program's own readers read them (in the
// run's --charset, by the program's rules for damaged tags), under the names
// that TagLib gives their values: with --all-formats, the properties of an
// MP3 file in its record.
#pragma once

#include "media/TagProperty.h"

namespace ZELd {

class APEv2;
class ID3v1;
class ID3v2;

// The properties of the tags read from one file: the ID3v2 tag's, then the
// APE tag's, then the ID3v1 tag's (sources "ID3v2", "APE", "ID3v1"); a tag
// that was not read gives none. Within a tag they come in key order, as
// TagLib's PropertyMap holds them, a key's values in the tag's order; every
// value is trimmed, and empty values are left out.
TagProperties mp3Properties(const ID3v2& id3v2, const APEv2& ape, const ID3v1& id3v1);

} // namespace ZELd
