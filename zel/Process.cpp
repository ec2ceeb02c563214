#include "zel/Process.h"

#include <clocale>
#include <cstring>
#include <cstdio>
#include <langinfo.h>

#include "zel/Debug.h"

namespace ZELd {

void ZELInitializeD()
{
    const char* codeset = ::nl_langinfo(CODESET);
    if (!codeset || std::strcmp(codeset, "UTF-8") != 0) std::setlocale(LC_CTYPE, "C.UTF-8");
}

void ZELCleanupD()
{
    // Nothing may report to a writer that no longer exists.
    ZELDebugSetGlobalReport(nullptr);
    std::fflush(stdout);
    std::fflush(stderr);
}

} // namespace ZELd
