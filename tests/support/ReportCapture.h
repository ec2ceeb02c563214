// Collects the debug report (traces and assertions) while the object lives.
#pragma once

#include <string>

#include "zel/Debug.h"
#include "zel/Writer.h"

namespace testsupport {

struct ReportCapture : ZELd::Writer {
    ReportCapture() { ZELd::ZELDebugSetGlobalReport(this); }
    ~ReportCapture() override { ZELd::ZELDebugSetGlobalReport(nullptr); }
    void write(const wchar_t* s, size_t n) override { text.append(s, n); }
    void flush() override {}
    std::wstring text;
};

} // namespace testsupport
