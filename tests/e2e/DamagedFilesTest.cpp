// Damaged tagged files through sonarcat --verbose, the selection that runs on
// every change: each tagged file cut at every length near its tags and at a
// stride through its audio, and with each version, size, count and flags
// field of its tags overwritten by extreme values. tests/long/ cuts at every
// length. In the sanitized build this is where a read outside a buffer or a
// huge allocation driven by a damaged size shows.
#include <gtest/gtest.h>

#include <cctype>

#include "e2e/DamagedRun.h"

namespace {

using damaged::sources;

struct Walked {
    const char* source;
    int frames;  // ID3v2 frames found by the walk
    bool extended;
    int items;   // APE items
    int apeBlocks;
    bool v1;
};

size_t countFields(const std::vector<damaged::Field>& fields, const std::string& prefix, const std::string& suffix)
{
    size_t n = 0;
    for (const damaged::Field& f : fields)
        if (f.what.rfind(prefix, 0) == 0 && f.what.size() >= suffix.size() && f.what.compare(f.what.size() - suffix.size(), suffix.size(), suffix) == 0)
            ++n;
    return n;
}

// Should the walk over a tagged file miss its tags, the overwrites would
// damage nothing that is read: the suite would pass on intact files.
TEST(DamagedFiles, TheFieldsOfEveryTagAreFound)
{
    // The frame counts are those that tagged/README.md lists for each tool.
    const std::vector<Walked> expected = {
        {"eyed3-v23-utf16", 8, false, 0, 0, false},
        {"eyed3-v24-utf16be-v1", 4, false, 0, 0, true},
        {"ffmpeg-v23-v1", 7, false, 0, 0, true},
        {"id3lib-v23-v1", 8, false, 0, 0, true},
        {"mutagen-v24-utf8", 8, false, 0, 0, false},
        {"built-v24ext-ape2-v1", 5, true, 5, 2, true},
        {"built-v22-ape1last", 4, false, 2, 1, false},
        {"built-ape2first-v1", 0, false, 3, 2, true},
    };
    ASSERT_EQ(sources().size(), expected.size()) << "a tagged file was added or removed: list it here";
    for (size_t i = 0; i < expected.size(); ++i) {
        const Walked& w = expected[i];
        const damaged::Source& source = sources()[i];
        SCOPED_TRACE(source.name);
        ASSERT_EQ(source.name, w.source);
        const std::vector<damaged::Field> fields = damaged::tagFields(source.bytes);
        EXPECT_EQ(countFields(fields, "frame", "-size"), static_cast<size_t>(w.frames));
        EXPECT_EQ(countFields(fields, "ext-size", ""), w.extended ? 1u : 0u);
        EXPECT_EQ(countFields(fields, "item", "-size"), static_cast<size_t>(w.items));
        EXPECT_EQ(countFields(fields, "ape-", "-size"), static_cast<size_t>(w.apeBlocks));
        EXPECT_EQ(countFields(fields, "v1-", ""), w.v1 ? 8u : 0u);
    }
}

class DamagedCopies : public ::testing::TestWithParam<size_t> {};

TEST_P(DamagedCopies, AreAllReportedSafelyAndQuickly)
{
    const damaged::Source& source = sources()[GetParam()];
    const std::vector<damaged::Damage> damages = damaged::representative(source.bytes);
    e2e::DamagedStats stats;
    e2e::runDamaged(source, damages, 0, damages.size(), stats);
    e2e::printStats(source.name, stats);
}

INSTANTIATE_TEST_SUITE_P(Tagged, DamagedCopies, ::testing::Range<size_t>(0, sources().size()),
                         [](const ::testing::TestParamInfo<size_t>& info) { return damaged::testName(info.param); });

} // namespace
