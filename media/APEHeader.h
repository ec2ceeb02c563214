// The 32 bytes of an APE tag's header or footer (both have this layout): the
// preamble "APETAGEX", then the version, the tag size (the items and the
// footer), the item count and the flags, little-endian, and 8 reserved. What
// the APE reader and the look at a file's ends (TagLocation) both read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ZELd {

struct APEHeader {
    static constexpr size_t kLength = 32;
    static constexpr size_t kVersionAt = 8, kSizeAt = 12, kCountAt = 16, kFlagsAt = 20;
    static constexpr char kPreamble[] = "APETAGEX";
    static constexpr size_t kPreambleLength = sizeof kPreamble - 1;
    // Version 1000 is APE version 1, 2000 version 2.
    static constexpr uint32_t kVersionUnit = 1000;

    // The 32 bytes at p begin with the preamble.
    static bool at(const char* p) { return std::memcmp(p, kPreamble, kPreambleLength) == 0; }
    static uint32_t version(const char* p) { return word(p + kVersionAt); }
    // 1 for version 1000, 2 for 2000; 0 below 1000.
    static uint32_t digit(uint32_t version) { return version / kVersionUnit; }

    // The unsigned 32-bit little-endian number at p: the one number reader of APE tags.
    static uint32_t word(const char* p)
    {
        const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
        return u[0] | u[1] << 8 | u[2] << 16 | static_cast<uint32_t>(u[3]) << 24;
    }
};

} // namespace ZELd
