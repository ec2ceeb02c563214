// A decoder for any character set that glibc's iconv knows (iconv -l): bytes
// to String. Unlike the decoders of zel/Decoders.h it holds a conversion
// descriptor and a buffer, so it is opened once and used by one thread at a
// time.
#pragma once

#include <iconv.h>

#include <cstddef>
#include <vector>

#include "zel/String.h"

namespace ZELd {

class IconvDecoder {
public:
    // charset: a name that iconv knows, in any letter case. An unknown name
    // throws CharsetConvertException (as a pointer) naming it; so do an empty
    // name and one that begins with "/", which iconv would take for the
    // locale's character set.
    explicit IconvDecoder(const String& charset);
    ~IconvDecoder();
    IconvDecoder(const IconvDecoder&) = delete;
    IconvDecoder& operator=(const IconvDecoder&) = delete;

    // The text of n bytes into out. False, with out unchanged, when the bytes
    // are not valid in the set (a sequence cut short at the end included).
    bool decode(const char* p, size_t n, String& out);

private:
    iconv_t descriptor_;
    std::vector<wchar_t> buffer_; // the characters of the text being decoded
};

} // namespace ZELd
