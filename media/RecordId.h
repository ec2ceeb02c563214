// Where a file's record lies in the catalogue.
#pragma once

#include <cstdint>

namespace ZELd {

struct RecordId {
    int64_t fileId = 0;
    int32_t dirId = 0;
};

} // namespace ZELd
