// The debug allocator, assertions and traces.
//
// Every allocation of the process goes through the debug allocator (the
// global new and delete are replaced). Blocks allocated with a source path
// and line are the program's own and are listed by the leak report when
// still held; the others are only counted.
//
// Each source file that uses the macros below defines ZEL_SOURCE as its path
// without extension, for example: #define ZEL_SOURCE "media/ID3v2"
#pragma once

#include <cstddef>
#include <string>

#include "zel/Format.h"

namespace ZELd {

class Writer;

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

// Reports a failed assertion on the debug report and returns.
void ZELDebugAssert(const char* path, int line, const char* expression);

// Writes a finished trace text to the debug report.
void ZELDebugReport(const std::wstring& text);

// A printf-style trace on the debug report.
template <class... A>
void ZELDebugTrace(const char* /*path*/, int /*line*/, const wchar_t* format, const A&... args)
{
    std::wstring text;
    formatAppend(text, format, args...);
    ZELDebugReport(text);
}

// The writer that receives assertions and traces; null: standard error.
// It belongs to the main thread.
void ZELDebugSetGlobalReport(Writer* report);

// While `into` is set, the calling thread's assertions and traces are
// appended to it instead of going to the report, so that a worker thread
// can hand them to the main thread to print in their place. Null ends the
// capture. Returns the text the thread captured into before.
std::wstring* ZELDebugCaptureReport(std::wstring* into);

// Lists the program's blocks still held (path, line, size), then counts them
// and the blocks held by code that gave no source (the C++ runtime, libraries).
// Level 0 says nothing when the program holds no block; level 1 always counts.
void ZELDebugDumpGlobalMemoryLeak(int level, Writer& out);

struct ZELDebugMemoryStatus {
    size_t ownBlocks, ownBytes, otherBlocks, otherBytes;
};
ZELDebugMemoryStatus ZELDebugMemory();

// The largest single block asked for, of any kind, since the last reset (or
// the start): lets a test bound what reading one file may allocate.
size_t ZELDebugLargestBlock();
void ZELDebugResetLargestBlock();

} // namespace ZELd

#define ZEL_HERE ZEL_SOURCE, __LINE__
#define ZEL_ASSERT(expr) ((expr) ? (void)0 : ::ZELd::ZELDebugAssert(ZEL_SOURCE, __LINE__, #expr))
#define ZEL_TRACE(...) ::ZELd::ZELDebugTrace(ZEL_SOURCE, __LINE__, __VA_ARGS__)
#define ZEL_MALLOC(size) ::ZELd::ZELDebugMalloc((size), ::ZELd::ZELAllocBuffer, ZEL_SOURCE, __LINE__)
#define ZEL_FREE(block) ::ZELd::ZELDebugFree((block), ::ZELd::ZELFreeBuffer, ZEL_SOURCE, __LINE__)
