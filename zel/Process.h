// Start and end of the library's life in a process.
#pragma once

namespace ZELd {

// Call after setlocale(LC_ALL, ""): when the character type's codeset is not
// UTF-8 (no locale, "C", "POSIX"), LC_CTYPE becomes "C.UTF-8", so that wide
// text and file names convert the same way in every environment. The calling
// thread keeps that choice (see ZELKeepTextLocale).
void ZELInitializeD();
// Makes the calling thread convert wide text (wcstombs and the like, which
// libmediainfo uses for file names) with the locale chosen by ZELInitializeD,
// whatever is done to the process's locale afterwards: a database client
// library may call setlocale(LC_ALL, "") when it connects (psqlODBC does),
// which in an environment without a locale would turn every name that is
// not ASCII into one that cannot be converted. Every thread but the one that
// called ZELInitializeD calls it before it converts.
void ZELKeepTextLocale();
void ZELCleanupD();

// The number of cores the process may run on (its affinity mask: taskset
// limits it), at least 1.
unsigned ZELUsableCores();

} // namespace ZELd
