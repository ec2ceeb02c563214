// Text to unsigned numbers.
#pragma once

#include <cstdint>

#include "zel/String.h"

namespace ZELd {

// parse(text, radix, fallback): the number at the start of text (after
// blanks), in the given radix (2 to 36); fallback when text holds no number.
// A number too large for the type gives the type's largest value.
class UInt32 {
public:
    static uint32_t parse(const String& text, int radix, uint32_t fallback);
};

class UInt64 {
public:
    static uint64_t parse(const String& text, int radix, uint64_t fallback);
};

} // namespace ZELd
