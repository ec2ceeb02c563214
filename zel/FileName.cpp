#include "zel/FileName.h"

#include <cstring>

#include "zel/Utf8.h"

namespace ZELd {

std::string nativePath(const String& path) { return toUtf8(path.str(), EscapedBytes::Restore); }

String fromNativePath(const char* bytes, size_t n) { return String(decodeUtf8Escaped(bytes, n)); }

String fromNativePath(const char* bytes) { return bytes ? fromNativePath(bytes, std::strlen(bytes)) : String(); }

} // namespace ZELd
