// File names are bytes; inside the program they are Strings in which a byte
// that is not valid UTF-8 is held as U+DC00 + byte.
#pragma once

#include <string>

#include "zel/String.h"

namespace ZELd {

// The bytes to hand to the system for a path.
std::string nativePath(const String& path);
// The String for bytes that came from the system or the command line.
String fromNativePath(const char* bytes, size_t n);
String fromNativePath(const char* bytes);

} // namespace ZELd
