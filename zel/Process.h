// Start and end of the library's life in a process.
#pragma once

namespace ZELd {

// Call after setlocale(LC_ALL, ""): when the character type's codeset is not
// UTF-8 (no locale, "C", "POSIX"), LC_CTYPE becomes "C.UTF-8", so that wide
// text and file names convert the same way in every environment. The
// calling thread keeps that choice as a locale of its own (uselocale), so
// that nothing done to the process's locale afterwards changes it: a
// database client library may call setlocale(LC_ALL, "") when it connects
// (psqlODBC does), which in an environment without a locale would make
// names that are not ASCII impossible to convert.
void ZELInitializeD();
void ZELCleanupD();

// The number of cores the process may run on (its affinity mask: taskset
// limits it), at least 1.
unsigned ZELUsableCores();

} // namespace ZELd
