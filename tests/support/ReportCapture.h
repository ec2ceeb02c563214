// Collects the debug report (traces and assertions) while the object lives;
// tells what an action throws.
#pragma once

#include <optional>
#include <string>

#include "zel/Debug.h"
#include "zel/Exception.h"
#include "zel/Writer.h"

namespace testsupport {

struct ReportCapture : ZELd::Writer {
    ReportCapture() { ZELd::ZELDebugSetGlobalReport(this); }
    ~ReportCapture() override { ZELd::ZELDebugSetGlobalReport(nullptr); }
    void write(const wchar_t* s, size_t n) override { text.append(s, n); }
    void flush() override {}
    std::wstring text;
};

// The message of the E that action throws (by pointer, as the library throws; destroyed here), or none.
template <class E, class Action>
std::optional<std::wstring> thrown(Action&& action)
{
    try {
        action();
    } catch (E* e) {
        const std::wstring message = e->toString().str();
        e->destroy();
        return message;
    }
    return std::nullopt;
}

} // namespace testsupport
