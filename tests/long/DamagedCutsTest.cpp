// Every tagged file cut at every length from nothing to the whole file, in
// batches, through sonarcat --verbose: the exhaustive form of
// tests/e2e/DamagedFilesTest.cpp, with the same checks on each run.
#include <gtest/gtest.h>

#include <cctype>

#include "e2e/DamagedRun.h"

namespace {

constexpr size_t kBatch = 2500;

using damaged::sources;

class DamagedCuts : public ::testing::TestWithParam<size_t> {};

TEST_P(DamagedCuts, EveryLengthIsReportedSafelyAndQuickly)
{
    const damaged::Source& source = sources()[GetParam()];
    const std::vector<damaged::Damage> cuts = damaged::everyCut(source.bytes.size());
    e2e::DamagedStats stats;
    for (size_t first = 0; first < cuts.size() && !HasFailure(); first += kBatch) e2e::runDamaged(source, cuts, first, kBatch, stats);
    EXPECT_EQ(stats.copies, source.bytes.size() + 1);
    e2e::printStats(source.name, stats);
}

INSTANTIATE_TEST_SUITE_P(Tagged, DamagedCuts, ::testing::Range<size_t>(0, sources().size()),
                         [](const ::testing::TestParamInfo<size_t>& info) { return damaged::testName(info.param); });

} // namespace
