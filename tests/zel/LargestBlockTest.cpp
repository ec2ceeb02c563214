// The debug allocator's record of the largest block asked for since a reset,
// which bounds what a reader may allocate for one file.
#define ZEL_SOURCE "tests/zel/LargestBlockTest"
#include <gtest/gtest.h>

#include <new>

#include "zel/Debug.h"

using namespace ZELd;

namespace {

TEST(LargestBlock, NotesEveryKindOfBlockUntilReset)
{
    struct Case {
        const char* kind;
        size_t size;
        void (*allocate)(size_t);
    };
    const Case cases[] = {
        {"tracked", 70001, [](size_t n) { ZEL_FREE(ZEL_MALLOC(n)); }},
        {"plain", 70003, [](size_t n) { ZELDebugFree(ZELDebugMalloc(n, ZELAllocBuffer, nullptr, 0), ZELFreeBuffer, nullptr, 0); }},
        {"new[]", 70005, [](size_t n) { ::operator delete[](::operator new[](n)); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.kind);
        ZELDebugResetLargestBlock();
        c.allocate(c.size);
        EXPECT_EQ(ZELDebugLargestBlock(), c.size);
        c.allocate(c.size / 2);
        EXPECT_EQ(ZELDebugLargestBlock(), c.size) << "a smaller block lowered the record";
    }
    ZELDebugResetLargestBlock();
    EXPECT_EQ(ZELDebugLargestBlock(), 0u) << "the reset kept the record";
}

} // namespace
