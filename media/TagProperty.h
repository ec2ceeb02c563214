// One value of a file's tags under the name TagLib gives it ("TITLE",
// "ARTIST", "MUSICBRAINZ_TRACKID", ...), with the kind of tag it came from
// ("ID3v2", "APE", "ID3v1", "Xiph", "MP4", "ASF", "RIFF", ...), as TagLib's
// tag classes are named. A key with two values is two properties.
#pragma once

#include <vector>

#include "zel/String.h"

namespace ZELd {

struct TagProperty {
    String source;
    String key;
    String value;

    bool operator==(const TagProperty&) const = default;
};

// A file's properties: the best tag's first, each tag's in key order (as
// TagLib's PropertyMap holds them), a key's values in the tag's order.
using TagProperties = std::vector<TagProperty>;

} // namespace ZELd
