#include "zel/Debug.h"

#include <cstdio>
#include <string>
#include <utility>

#include "zel/Utf8.h"
#include "zel/Writer.h"

namespace ZELd {

namespace {
Writer* gReport = nullptr;
thread_local std::wstring* tCaptured = nullptr;
} // namespace

void ZELDebugSetGlobalReport(Writer* report) { gReport = report; }

std::wstring* ZELDebugCaptureReport(std::wstring* into) { return std::exchange(tCaptured, into); }

void ZELDebugReport(const std::wstring& text)
{
    if (tCaptured) {
        tCaptured->append(text);
    } else if (gReport) {
        gReport->write(text.data(), text.size());
        gReport->flush();
    } else {
        std::string bytes = toUtf8(text);
        std::fwrite(bytes.data(), 1, bytes.size(), stderr);
    }
}

void ZELDebugAssert(const char* path, int line, const char* expression)
{
    std::wstring text;
    formatAppend(text, L"Assertion failed [%s] at %s(%d)\n", expression, path, line);
    ZELDebugReport(text);
}

void ZELDebugDumpGlobalMemoryLeak(int level, Writer& out)
{
    // Collect first: writing may allocate.
    constexpr size_t kMaxListed = 100;
    ZELDebugHeldBlock leaks[kMaxListed];
    ZELDebugMemoryStatus status;
    const size_t listed = ZELDebugHeldBlocks(leaks, kMaxListed, status);
    if (status.ownBlocks == 0 && level == 0) return; // nothing of the program's own is held: nothing to say
    for (size_t i = 0; i < listed; ++i) out.printf(L"Memory leak [%s(%d)] size[%zd]\n", leaks[i].path, leaks[i].line, leaks[i].size);
    if (status.ownBlocks > listed) out.printf(L"Memory leak: %zd more block(s) not listed\n", status.ownBlocks - listed);
    out.printf(L"Memory: %zd block(s) of the program still held, %zd block(s) of %zd byte(s) held by code without source\n",
               status.ownBlocks, status.otherBlocks, status.otherBytes);
    out.flush();
}

} // namespace ZELd
