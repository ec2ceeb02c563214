// The debug allocator's bookkeeping and leak list, assertions and traces.
#define ZEL_SOURCE "tests/zel/DebugAllocatorTest"
#include <string>

#include <gtest/gtest.h>

#include "zel/Array.h"
#include "zel/Writer.h"

using namespace ZELd;

namespace {

// A writer that keeps all it is given.
struct Text : Writer {
    std::wstring text;
    void write(const wchar_t* s, size_t n) override { text.append(s, n); }
    void flush() override {}
};

// The leak report at level 0 (every block listed).
std::wstring leakReport()
{
    Text out;
    ZELDebugDumpGlobalMemoryLeak(0, out);
    return out.text;
}

class Probe : public Object {
public:
    explicit Probe(int& alive) : alive_(alive) { ++alive_; }
    ~Probe() override { --alive_; }

private:
    int& alive_;
};

TEST(DebugAllocator, BlocksWithASourceAreListedOthersOnlyCounted)
{
    const ZELDebugMemoryStatus before = ZELDebugMemory();
    void* own = ZELDebugMalloc(77, ZELAllocBuffer, "tests/zel/leak-probe", 4242);
    void* other = ZELDebugMalloc(1000, ZELAllocBuffer, nullptr, 0);
    const ZELDebugMemoryStatus during = ZELDebugMemory();
    const bool listed = leakReport().find(L"Memory leak [tests/zel/leak-probe(4242)] size[77]\n") != std::wstring::npos;
    ZELDebugFree(own, ZELFreeBuffer, "tests/zel/leak-probe", 4243);
    ZELDebugFree(other, ZELFreeBuffer, nullptr, 0);
    const ZELDebugMemoryStatus after = ZELDebugMemory();
    struct { const char* what; size_t before, during, after, added; } counts[] = {
        {"own blocks", before.ownBlocks, during.ownBlocks, after.ownBlocks, 1},
        {"own bytes", before.ownBytes, during.ownBytes, after.ownBytes, 77},
        {"other blocks", before.otherBlocks, during.otherBlocks, after.otherBlocks, 1},
        {"other bytes", before.otherBytes, during.otherBytes, after.otherBytes, 1000},
    };
    for (const auto& c : counts) {
        EXPECT_EQ(c.during, c.before + c.added) << c.what;
        EXPECT_EQ(c.after, c.before) << c.what;
    }
    EXPECT_TRUE(listed) << "the block with a source is not in the leak report";
    EXPECT_EQ(leakReport().find(L"leak-probe"), std::wstring::npos);

    // An object made with ZEL_NEW is listed with the line that made it, until destroyed.
    int alive = 0;
    const std::wstring where = L"[tests/zel/DebugAllocatorTest(" + std::to_wstring(__LINE__ + 1) + L")]";
    Probe* probe = ZEL_NEW Probe(alive);
    EXPECT_NE(leakReport().find(where), std::wstring::npos) << leakReport();
    probe->destroy();
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(leakReport().find(where), std::wstring::npos);
}

TEST(DebugAllocator, FailedAssertionsAreReportedAndReturn)
{
    Text report;
    ZELDebugSetGlobalReport(&report);
    const std::wstring expected = L"Assertion failed [1 + 1 == 3] at tests/zel/DebugAllocatorTest(" + std::to_wstring(__LINE__ + 1) + L")\n";
    ZEL_ASSERT(1 + 1 == 3);
    ZEL_ASSERT(!expected.empty()); // holds: says nothing
    ZEL_TRACE(L"Item size[%d] flags[%x] %ls\n", 12, 255, L"été");
    // Arrays assert on an index out of range and give an empty value.
    StringArray values;
    values.add(L"one");
    EXPECT_EQ(values[1].str(), L"");
    EXPECT_EQ(PointerArray<Probe>()[0], nullptr);
    ZELDebugSetGlobalReport(nullptr);
    // The code after the assertion ran: its trace follows the assertion's line.
    const std::wstring& text = report.text;
    EXPECT_EQ(text.rfind(expected + L"Item size[12] flags[ff] été\nAssertion failed [", 0), 0u) << text;
    EXPECT_EQ(text.find(L"expected.empty()"), std::wstring::npos) << text;
    size_t first = text.find(L"] at zel/Array(");
    EXPECT_NE(first, std::wstring::npos) << text;
    EXPECT_NE(text.find(L"] at zel/Array(", first + 1), std::wstring::npos) << "two array assertions expected: " << text;
}

} // namespace
