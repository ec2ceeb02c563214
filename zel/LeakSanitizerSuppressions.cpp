// What LeakSanitizer is told to leave alone, built into the program and the
// test binaries of an AddressSanitizer build only (see the top CMakeLists.txt).
//
// psqlODBC (the PostgreSQL ODBC driver) keeps a few hundred bytes of a
// statement that the server refused to prepare (a table that is not there,
// which is how the program finds an empty catalogue) past the end of the
// connection. The program frees every handle it got; the driver is not
// built with the sanitizer, which sees only the block that is left.
extern "C" const char* __lsan_default_suppressions() { return "leak:psqlodbcw.so\n"; }
// Nor is the count of what was left alone printed: standard error stays what
// the program wrote, as in every other build.
extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }
