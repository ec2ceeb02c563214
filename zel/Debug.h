// Assertions, traces and the leak report of the debug allocator, which comes
// with them (zel/DebugAllocator.h).
//
// Each source file that uses the macros below defines ZEL_SOURCE as its path
// without extension, for example: #define ZEL_SOURCE "media/ID3v2"
#pragma once

#include <cstddef>
#include <string>

#include "zel/DebugAllocator.h"
#include "zel/Format.h"

namespace ZELd {

class Writer;

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

} // namespace ZELd

#define ZEL_ASSERT(expr) ((expr) ? (void)0 : ::ZELd::ZELDebugAssert(ZEL_SOURCE, __LINE__, #expr))
#define ZEL_TRACE(...) ::ZELd::ZELDebugTrace(ZEL_SOURCE, __LINE__, __VA_ARGS__)
