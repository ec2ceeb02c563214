// The names a taglib_properties input is read under: its first byte picks
// one (modulo the count), so that each of TagLib's readers gets inputs.
#pragma once

#include <cstddef>
#include <iterator>
#include <string_view>

namespace fuzzsupport {

inline constexpr std::string_view kTagLibExtensions[] = {".flac", ".ogg", ".oga", ".opus", ".spx", ".m4a", ".mp4",
                                                         ".wma",  ".wv",  ".mpc", ".ape",  ".tta", ".aif", ".wav",
                                                         ".mod",  ".s3m", ".it",  ".xm",   ".mp2", ".aac", ".aiff"};
inline constexpr size_t kTagLibExtensionCount = std::size(kTagLibExtensions);

} // namespace fuzzsupport
