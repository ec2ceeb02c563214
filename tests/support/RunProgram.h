// Runs a program with given arguments and environment and collects what it writes.
#pragma once

#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "support/SpawnedProgram.h"

namespace testsupport {

struct RunResult {
    std::string out;
    std::string err;
    int status = -1;      // exit code, or -1 when killed
    bool timedOut = false;
};

// Runs the program to its end; one still running, or whose output is still
// open, after the time is killed.
inline RunResult runProgram(const std::vector<std::string>& args, const std::vector<std::string>& env, int timeoutSeconds = 60)
{
    SpawnedProgram program(args, env);
    if (!program.started()) return {};
    Ending end = program.finish(timeoutSeconds);
    return {std::move(end.out), std::move(end.err), end.exitCode, end.timedOut};
}

// The environment of a user with no locale at all, or with the given LANG.
inline std::vector<std::string> plainEnvironment(const std::string& lang = "")
{
    std::vector<std::string> env = {"PATH=/usr/bin:/bin", "TZ=UTC"};
    if (!lang.empty()) env.push_back("LANG=" + lang);
    return env;
}

// Start and Finish carry wall-clock times; tests compare the rest.
inline std::string maskTimes(const std::string& text)
{
    static const std::regex stamp(R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3})");
    return std::regex_replace(text, stamp, "<time>");
}

} // namespace testsupport
