#include "zel/Process.h"

#include <clocale>
#include <cstdio>
#include <cstring>
#include <langinfo.h>
#include <locale.h>
#include <sched.h>

#include "zel/Debug.h"

namespace ZELd {

namespace {
locale_t gTextLocale = nullptr; // the locale chosen at start, kept apart from the process's
} // namespace

void ZELInitializeD()
{
    const char* codeset = ::nl_langinfo(CODESET);
    if (!codeset || std::strcmp(codeset, "UTF-8") != 0) std::setlocale(LC_CTYPE, "C.UTF-8");
    gTextLocale = ::duplocale(LC_GLOBAL_LOCALE);
    if (gTextLocale) ::uselocale(gTextLocale);
}

unsigned ZELUsableCores()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    if (::sched_getaffinity(0, sizeof set, &set) != 0) return 1;
    const int count = CPU_COUNT(&set);
    return count > 1 ? static_cast<unsigned>(count) : 1;
}

void ZELCleanupD()
{
    // Nothing may report to a writer that no longer exists.
    ZELDebugSetGlobalReport(nullptr);
    std::fflush(stdout);
    std::fflush(stderr);
    if (gTextLocale) {
        ::uselocale(LC_GLOBAL_LOCALE);
        ::freelocale(gTextLocale);
        gTextLocale = nullptr;
    }
}

} // namespace ZELd
