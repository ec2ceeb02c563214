// APE tags (versions 1 and 2).
#pragma once

#include <cstdint>

#include "zel/Object.h"

namespace ZELd {

class APEv2 : public Object {
public:
    // The unsigned 32-bit little-endian number at p: the one number reader of APE tags.
    static uint32_t word(const char* p)
    {
        const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
        return u[0] | u[1] << 8 | u[2] << 16 | static_cast<uint32_t>(u[3]) << 24;
    }
};

} // namespace ZELd
