// The debug allocator.
//
// Every allocation of the process goes through it (the global new and delete
// are replaced). Blocks allocated with a source path and line are the
// program's own and are listed by the leak report (zel/Debug.h) when still
// held; the others are only counted.
//
// A process started with ZEL_ALLOCATOR=plain in its environment, one that
// never reports on its blocks, allocates with the C library alone: the counts
// and the list stay empty there.
//
// Each source file that uses the macros below defines ZEL_SOURCE as its path
// without extension, for example: #define ZEL_SOURCE "media/ID3v2"
#pragma once

#include <cstddef>

namespace ZELd {

// Allocation kinds.
enum : int {
    ZELAllocBuffer = 0,
    ZELAllocNew = 1,
    ZELAllocArrayNew = 2,
    ZELFreeBuffer = 0,
    ZELFreeDelete = 5,
    ZELFreeArrayDelete = 6,
};

void* ZELDebugMalloc(size_t size, int kind, const char* path, int line);
void ZELDebugFree(void* block, int kind, const char* path, int line);

struct ZELDebugMemoryStatus {
    size_t ownBlocks, ownBytes, otherBlocks, otherBytes;
};
ZELDebugMemoryStatus ZELDebugMemory();

// One of the program's blocks still held: where it was allocated, and its size.
struct ZELDebugHeldBlock {
    const char* path;
    int line;
    size_t size;
};
// Copies the program's blocks still held, the newest first and at most max of
// them, into `into` and returns how many it copied; status gets the counts of
// the same moment.
size_t ZELDebugHeldBlocks(ZELDebugHeldBlock* into, size_t max, ZELDebugMemoryStatus& status);

// The largest single block asked for, of any kind, since the last reset (or
// the start): lets a test bound what reading one file may allocate.
size_t ZELDebugLargestBlock();
void ZELDebugResetLargestBlock();

} // namespace ZELd

#define ZEL_HERE ZEL_SOURCE, __LINE__
#define ZEL_MALLOC(size) ::ZELd::ZELDebugMalloc((size), ::ZELd::ZELAllocBuffer, ZEL_SOURCE, __LINE__)
#define ZEL_FREE(block) ::ZELd::ZELDebugFree((block), ::ZELd::ZELFreeBuffer, ZEL_SOURCE, __LINE__)
