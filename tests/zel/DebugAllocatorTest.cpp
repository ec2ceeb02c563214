// The debug allocator, its leak report, assertions and traces, and the arrays.
#define ZEL_SOURCE "tests/zel/DebugAllocatorTest"
#include <string>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "zel/Array.h"

using namespace ZELd;

namespace {

// The leak report at level 0 (every block listed).
std::string leakReport()
{
    zeltest::Capture capture;
    FileWriter out(capture.fd(), nullptr);
    ZELDebugDumpGlobalMemoryLeak(0, out);
    out.flush();
    return capture.bytes();
}

class Probe : public Object {
public:
    explicit Probe(int& alive) : alive_(alive) { ++alive_; }
    ~Probe() override { --alive_; }

private:
    int& alive_;
};

TEST(DebugAllocator, OwnBlocksAreCountedListedAndReleased)
{
    const ZELDebugMemoryStatus before = ZELDebugMemory();
    void* block = ZELDebugMalloc(77, ZELAllocBuffer, "tests/zel/leak-probe", 4242);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before.ownBlocks + 1);
    EXPECT_EQ(ZELDebugMemory().ownBytes, before.ownBytes + 77);
    const std::string report = leakReport();
    EXPECT_NE(report.find("Memory leak [tests/zel/leak-probe(4242)] size[77]"), std::string::npos) << report;
    ZELDebugFree(block, ZELFreeBuffer, "tests/zel/leak-probe", 4243);
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before.ownBlocks);
    EXPECT_EQ(leakReport().find("leak-probe"), std::string::npos);

    // A block without a source is only counted.
    const ZELDebugMemoryStatus start = ZELDebugMemory();
    block = ZELDebugMalloc(1000, ZELAllocBuffer, nullptr, 0);
    const ZELDebugMemoryStatus during = ZELDebugMemory();
    ZELDebugFree(block, ZELFreeBuffer, nullptr, 0);
    const ZELDebugMemoryStatus end = ZELDebugMemory();
    EXPECT_EQ(during.ownBlocks, start.ownBlocks);
    EXPECT_EQ(during.otherBlocks, start.otherBlocks + 1);
    EXPECT_EQ(during.otherBytes, start.otherBytes + 1000);
    EXPECT_EQ(end.otherBlocks, start.otherBlocks);
}

TEST(DebugAllocator, ObjectsAndBuffersMadeWithTheirSource)
{
    int alive = 0;
    const size_t before = ZELDebugMemory().ownBlocks;
    const std::string where = "[tests/zel/DebugAllocatorTest(" + std::to_string(__LINE__ + 1) + ")]";
    Probe* probe = ZEL_NEW Probe(alive);
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before + 1);
    EXPECT_NE(leakReport().find(where), std::string::npos) << leakReport();
    probe->destroy();
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before);
    EXPECT_EQ(leakReport().find(where), std::string::npos);

    void* buffer = ZEL_MALLOC(16);
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before + 1);
    ZEL_FREE(buffer);
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before);

    {
        PointerArray<Probe> items; // owns its elements
        for (int i = 0; i < 3; ++i) items.add(ZEL_NEW Probe(alive));
        EXPECT_EQ(ZELDebugMemory().ownBlocks, before + 3);
        items.clear();
        EXPECT_EQ(alive, 0);
        items.add(ZEL_NEW Probe(alive));
    }
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(ZELDebugMemory().ownBlocks, before);
}

TEST(DebugAllocator, FailedAssertionIsReportedAndReturns)
{
    zeltest::ReportCapture report;
    const std::string expected = "[1 + 1 == 3] at tests/zel/DebugAllocatorTest(" + std::to_string(__LINE__ + 1) + ")";
    ZEL_ASSERT(1 + 1 == 3);
    ZEL_ASSERT(!expected.empty()); // holds: says nothing
    ZEL_TRACE(L"Item size[%d] flags[%x] %ls\n", 12, 255, L"été");
    std::string text = report.text();
    EXPECT_NE(text.find(expected), std::string::npos) << text;
    EXPECT_EQ(text.find("expected.empty()"), std::string::npos) << text;
    // The code after the assertion ran: its trace follows the assertion's line.
    EXPECT_NE(text.find(")\nItem size[12] flags[ff] \xC3\xA9t\xC3\xA9\n"), std::string::npos) << text;
}

TEST(DebugAllocator, ArraysAssertOnAnIndexOutOfRangeAndGoOn)
{
    zeltest::ReportCapture report;
    StringArray values;
    values.add(L"one");
    values.add(L"two");
    EXPECT_EQ(values[1].str(), L"two");
    EXPECT_EQ(values[2].str(), L"");
    EXPECT_EQ(values.toString().str(), L"one, two");
    EXPECT_EQ(PointerArray<Probe>()[0], nullptr);
    std::string text = report.text();
    size_t first = text.find("] at zel/Array(");
    EXPECT_NE(first, std::string::npos) << text;
    EXPECT_NE(text.find("] at zel/Array(", first + 1), std::string::npos) << "two assertions expected: " << text;
}

} // namespace
