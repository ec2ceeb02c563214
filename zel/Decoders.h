// Charset decoders: bytes to String. Bytes that are not valid in the charset
// throw CharsetConvertException (as a pointer).
#pragma once

#include <cstddef>

#include "zel/String.h"

namespace ZELd {

// Bytes 0x00..0x7F; anything above fails.
class AsciiDecoder {
public:
    String decode(const char* p, size_t n) const;
};

// ISO-8859-1: every byte is the character of the same value; never fails.
class Latin1Decoder {
public:
    String decode(const char* p, size_t n) const;
};

// Strict UTF-8: malformed and overlong sequences, surrogates and code points
// above U+10FFFF fail.
class UTF8Decoder {
public:
    String decode(const char* p, size_t n) const;
};

// UTF-16 in the given byte order (1234 little-endian, 4321 big-endian). A
// leading byte-order mark (FF FE or FE FF) chooses the order and is not part of
// the text; a trailing odd byte is dropped; an unpaired surrogate becomes U+FFFD.
class UTF16Decoder {
public:
    explicit UTF16Decoder(int byteOrder) : bigEndian_(byteOrder == 4321) {}
    String decode(const char* p, size_t n) const;

private:
    bool bigEndian_;
};

} // namespace ZELd
