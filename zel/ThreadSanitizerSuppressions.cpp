// What ThreadSanitizer is told to leave alone, built into the program and the
// test binaries of a ThreadSanitizer build only (see the top CMakeLists.txt).
//
// libfbclient (the Firebird and InterBase modules' client library) takes two
// of its own locks in one order when it attaches and in the other when it is
// unloaded. Both happen on the one thread that uses the connection, so they
// never meet; the library is not built with ThreadSanitizer, which sees only
// the order.
extern "C" const char* __tsan_default_suppressions()
{
    return "deadlock:libfbclient.so\n";
}
