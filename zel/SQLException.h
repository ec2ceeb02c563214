// The failure of the SQL layer: a driver's error, a misuse of a query, a
// driver module that cannot be loaded.
#pragma once

#include "zel/Exception.h"
#include "zel/String.h"

namespace ZELd {

class SQLException : public Exception {
public:
    using Exception::Exception;
    SQLException(const String& message, bool conflict) : Exception(message), conflict_(conflict) {}
    const wchar_t* className() const override { return L"SQLException"; }
    // Another transaction took a key this one writes, or the two deadlocked:
    // rolled back and tried again, the work may succeed.
    bool conflict() const { return conflict_; }

private:
    bool conflict_ = false;
};

} // namespace ZELd
