// Start and end of the library's life in a process.
#pragma once

namespace ZELd {

// Call after setlocale(LC_ALL, ""): when the character type's codeset is not
// UTF-8 (no locale, "C", "POSIX"), LC_CTYPE becomes "C.UTF-8", so that wide
// text and file names convert the same way in every environment.
void ZELInitializeD();
void ZELCleanupD();

// The number of cores the process may run on (its affinity mask: taskset
// limits it), at least 1.
unsigned ZELUsableCores();

} // namespace ZELd
