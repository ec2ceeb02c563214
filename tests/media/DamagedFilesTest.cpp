// Damaged copies of the sample files, read as the program reads tags: four bytes
// overwritten by FF FF FF FF, 7F FF FF FF, 7F 7F 7F 7F, 80 00 00 00 or 00 00 00 80
// at every offset of the first 2 KB and the last 512 bytes, and the file cut at each
// of those lengths (long runs: everywhere). No copy may leave a block of the program
// behind, ask for a block that its bytes cannot back, or take a second.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/Program.h"
#include "support/TagBuilder.h"
#include "support/TagReading.h"

namespace {

class ScaledDamagedFiles : public ::testing::TestWithParam<size_t> {};

TEST_P(ScaledDamagedFiles, AreReadSafelyAndQuickly)
{
    const testsupport::Sample& sample = testsupport::samples()[GetParam()];
    const std::string& intact = sample.bytes;
    testsupport::TagReading reading;
    const bool everywhere = testsupport::longRun();
    size_t copies = 0, failures = 0;
    double slowest = 0;
    auto check = [&](const std::string& bytes, const std::string& what) {
        const testsupport::TagCost cost = reading.read(bytes);
        ++copies;
        slowest = std::max(slowest, cost.seconds);
        if ((cost.leftBlocks != 0 || !cost.withinFile(bytes.size()) || cost.seconds > 1) && ++failures <= 10)
            ADD_FAILURE() << sample.name << " " << what << ": " << cost.leftBlocks << " block(s) left, largest block " << cost.largest
                          << " for " << bytes.size() << " bytes, " << cost.seconds << " s";
    };
    // The reading must see the tag body at the start, or the bound proves nothing.
    const auto byte = [&](size_t i) { return static_cast<size_t>(static_cast<uint8_t>(intact[i])); };
    const size_t body = intact.compare(0, 3, "ID3") ? 0 : byte(6) << 21 | byte(7) << 14 | byte(8) << 7 | byte(9);
    EXPECT_GE(reading.read(intact).largest, body) << sample.name;
    for (size_t at = 0; at <= intact.size(); ++at) {
        if (!everywhere && at >= 2048 && at + 512 < intact.size()) continue;
        check(intact.substr(0, at), "cut at " + std::to_string(at));
        for (const char* pattern : {"\xFF\xFF\xFF\xFF", "\x7F\xFF\xFF\xFF", "\x7F\x7F\x7F\x7F", "\x80\0\0\0", "\0\0\0\x80"}) {
            std::string copy = intact;
            copy.replace(at, 4, pattern, std::min<size_t>(4, intact.size() - at));
            if (at < intact.size()) check(copy, "bytes " + testing::PrintToString(std::string(pattern, 4)) + " at " + std::to_string(at));
        }
    }
    std::printf("[ damaged  ] %s: %zu copies, the slowest %.2f ms\n", sample.name.c_str(), copies, slowest * 1000);
}

INSTANTIATE_TEST_SUITE_P(Samples, ScaledDamagedFiles, ::testing::Range<size_t>(0, testsupport::samples().size()),
                         [](const auto& info) { return std::to_string(info.param); });

} // namespace
