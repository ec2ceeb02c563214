#include "zel/Exception.h"

#include <cstring>

#include "zel/Utf8.h"

namespace ZELd {

String Exception::toStringAll() const
{
    if (systemError_ == 0) return String::format(L"%ls: %ls", className(), message_);
    const char* text = std::strerror(systemError_);
    return String::format(L"%ls: %ls (%s)", className(), message_, text);
}

} // namespace ZELd
