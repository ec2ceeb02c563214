// The tags of the audio formats that the program has no reader of its own
// for, as TagLib reads them: every value under TagLib's property names, tag
// by tag, the file's best tag first.
#pragma once

#include "media/TagProperty.h"
#include "zel/String.h"

namespace ZELd {

namespace TagLibProperties {

// Whether TagLib reads files of this name: its extension (any letter case)
// is one of TagLib's, and not ".mp3", whose tags the program reads itself.
bool readsName(const String& name);

// The properties of the file open at fd (read with pread, never moved or
// closed), named path for TagLib's choice of reader; throws IOException
// (path, "TagLib Read Failed") when TagLib cannot read it.
TagProperties read(int fd, const String& path);

} // namespace TagLibProperties

} // namespace ZELd
