// Running the built program in the end-to-end tests.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "support/RunProgram.h"

namespace e2e {

inline testsupport::RunResult sonarcat(const std::vector<std::string>& args, const std::vector<std::string>& env = testsupport::plainEnvironment())
{
    std::vector<std::string> argv = {SONARCAT_BINARY};
    argv.insert(argv.end(), args.begin(), args.end());
    return testsupport::runProgram(argv, env);
}

inline std::string sample(const std::string& name) { return std::string(SONARCAT_TEST_DATA) + "/" + name; }

inline const char* kCleanLeakReport = "Memory: 0 block(s) of the program still held";

// The AddressSanitizer build: it cannot run under valgrind, and its
// quarantine makes peak memory grow with the work done.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

// How often `what` stands in `text`: the files a report lists, say ("\nFILE[").
inline size_t occurrences(const std::string& text, const std::string& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

} // namespace e2e
