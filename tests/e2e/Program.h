// Running the built program in the end-to-end tests.
#pragma once

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

} // namespace e2e
