// The debug allocator's bookkeeping and leak list, and what a failed
// assertion reports.
#define ZEL_SOURCE "tests/zel/DebugAllocatorTest"
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <tuple>

#include "support/ReportCapture.h"
#include "zel/Array.h"

using namespace ZELd;

namespace {

std::wstring leakReport()
{
    testsupport::ReportCapture out;
    ZELDebugDumpGlobalMemoryLeak(0, out);
    return out.text;
}

struct Probe : Object {};
auto counts(const ZELDebugMemoryStatus& s) { return std::tuple(s.ownBlocks, s.ownBytes, s.otherBlocks, s.otherBytes); }

TEST(DebugAllocator, BlocksWithASourceAreListedOthersOnlyCounted)
{
    const ZELDebugMemoryStatus before = ZELDebugMemory();
    void* own = ZELDebugMalloc(77, ZELAllocBuffer, "tests/zel/leak-probe", 4242);
    void* other = ZELDebugMalloc(1000, ZELAllocBuffer, nullptr, 0);
    const ZELDebugMemoryStatus during = ZELDebugMemory();
    EXPECT_NE(leakReport().find(L"Memory leak [tests/zel/leak-probe(4242)] size[77]\n"), std::wstring::npos);
    ZELDebugFree(own, ZELFreeBuffer, "tests/zel/leak-probe", 4243);
    ZELDebugFree(other, ZELFreeBuffer, nullptr, 0);
    const ZELDebugMemoryStatus after = ZELDebugMemory();
    EXPECT_EQ(counts(during), std::tuple(before.ownBlocks + 1, before.ownBytes + 77, before.otherBlocks + 1, before.otherBytes + 1000));
    EXPECT_EQ(counts(after), counts(before));
    EXPECT_EQ(leakReport().find(L"leak-probe"), std::wstring::npos);
    const std::wstring where = L"[tests/zel/DebugAllocatorTest(" + std::to_wstring(__LINE__ + 1) + L")]";
    Probe* probe = ZEL_NEW Probe;
    EXPECT_NE(leakReport().find(where), std::wstring::npos) << "an object is listed with the line that made it";
    probe->destroy();
    EXPECT_EQ(leakReport().find(where), std::wstring::npos);
}

// Blocks made on one thread and freed on another keep the counts exact; a
// thread that captures its traces keeps them off the report.
TEST(DebugAllocator, CountsStayExactAcrossThreadsAndCapturedTracesStayOffTheReport)
{
    testsupport::ReportCapture report;
    std::wstring captured;
    captured.reserve(64); // made here: the worker's count is its blocks alone
    const ZELDebugMemoryStatus before = ZELDebugMemory();
    void* blocks[100];
    std::thread([&] {
        ZELDebugCaptureReport(&captured);
        for (void*& b : blocks) b = ZELDebugMalloc(64, ZELAllocBuffer, nullptr, 0);
        ZEL_TRACE(L"from a worker %d\n", 7);
        ZELDebugCaptureReport(nullptr);
    }).join();
    const ZELDebugMemoryStatus during = ZELDebugMemory();
    for (void* b : blocks) ZELDebugFree(b, ZELFreeBuffer, nullptr, 0);
    const ZELDebugMemoryStatus after = ZELDebugMemory();
    EXPECT_EQ(counts(during), std::tuple(before.ownBlocks, before.ownBytes, before.otherBlocks + 100, before.otherBytes + 6400));
    EXPECT_EQ(counts(after), counts(before));
    EXPECT_EQ(captured, L"from a worker 7\n");
    EXPECT_EQ(report.text, L"");
}

TEST(DebugAllocator, FailedAssertionsAreReportedAndReturn)
{
    testsupport::ReportCapture report;
    const std::wstring expected =
        L"Assertion failed [1 + 1 == 3] at tests/zel/DebugAllocatorTest(" + std::to_wstring(__LINE__ + 1) + L")\n";
    ZEL_ASSERT(1 + 1 == 3);
    ZEL_ASSERT(!expected.empty()); // holds: says nothing
    ZEL_TRACE(L"Item size[%d] flags[%x] %ls\n", 12, 255, L"été");
    StringArray values;
    values.add(L"one");
    EXPECT_EQ(values[1].str(), L"");
    EXPECT_EQ(PointerArray<Probe>()[0], nullptr);
    EXPECT_EQ(report.text.rfind(expected + L"Item size[12] flags[ff] été\nAssertion failed [", 0), 0u) << report.text;
    EXPECT_EQ(report.text.find(L"expected.empty()"), std::wstring::npos);
    const size_t first = report.text.find(L"] at zel/Array(");
    EXPECT_NE(report.text.find(L"] at zel/Array(", first + 1), std::wstring::npos) << "two array assertions: " << report.text;
}

} // namespace
