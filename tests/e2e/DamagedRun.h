// One run of sonarcat --verbose over a directory of damaged copies, and what
// it must show: every copy reported, in order, with its size; the closing
// lines; nothing from the sanitizers (in the sanitized build) and no block of
// the program left; no allocation beyond a bound; no file read for more than
// a second.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "e2e/Program.h"
#include "support/DamagedCopies.h"
#include "support/OpenWatch.h"
#include "support/TempDir.h"

namespace e2e {

constexpr double kSecondsPerFile = 1.0;

// In the sanitized build a single allocation above 8 MB ends the run with a
// report. MediaInfo takes about 1 MB for itself; the copies are below 11 KB,
// so only a size taken from a damaged field gets near the limit.
inline std::vector<std::string> damagedEnvironment()
{
    std::vector<std::string> env = testsupport::plainEnvironment();
    env.push_back("ASAN_OPTIONS=max_allocation_size_mb=8:allocator_may_return_null=0");
    env.push_back("UBSAN_OPTIONS=print_stacktrace=1");
    return env;
}

struct DamagedStats {
    size_t copies = 0;
    double longest = 0; // seconds, of one file
    std::string slowest;
    double runs = 0;    // seconds, of the whole runs
};

inline std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> out;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) out.push_back(text.substr(start, end - start));
    if (start < text.size()) out.push_back(text.substr(start));
    return out;
}

// What is wrong with the report of a run over `dir`; empty when nothing is.
inline std::string reportProblem(const std::string& out, const std::string& dir, const std::vector<std::string>& names,
                                 const std::vector<size_t>& sizes)
{
    const std::vector<std::string> l = lines(out);
    const std::string rule(80, '=');
    if (l.size() < 3 || l[0].rfind("Start [", 0) != 0 || l[1].rfind("      [", 0) != 0 || l[2] != rule)
        return "the report does not open with the Start line, the options and a separator";
    size_t next = 0;
    for (size_t i = 3; i < l.size(); ++i) {
        if (l[i].rfind("FILE[", 0) != 0) continue;
        if (next == names.size()) return "a file beyond the copies: " + l[i];
        if (l[i] != "FILE[" + names[next] + "]") return "copy " + std::to_string(next) + " is " + names[next] + ", the report has " + l[i];
        if (l[i - 1] != "DIR [" + dir + "/]") return "for " + names[next] + " the line before is " + l[i - 1];
        const std::string size = " size[" + std::to_string(sizes[next]) + "] ";
        if (i + 1 == l.size() || l[i + 1].rfind("    tags[", 0) != 0 || l[i + 1].find(size) == std::string::npos)
            return "no tags line with" + size + "after " + l[i];
        ++next;
    }
    if (next < names.size())
        return "only " + std::to_string(next) + " of " + std::to_string(names.size()) + " copies reported; the next would be " + names[next];
    if (l.size() < 5 || l[l.size() - 2] != rule || l.back().rfind("Finish [", 0) != 0)
        return "the report does not close with a separator and the Finish line";
    return "";
}

// The first sanitizer or allocator complaint in the error output, with what follows it.
inline std::string sanitizerReport(const std::string& err)
{
    size_t first = std::string::npos;
    for (const char* marker : {"AddressSanitizer", "LeakSanitizer", "UndefinedBehaviorSanitizer", "runtime error:", "ZELDebugFree"})
        first = std::min(first, err.find(marker));
    if (first == std::string::npos) return "";
    const size_t from = err.rfind('\n', first);
    return err.substr(from == std::string::npos ? 0 : from + 1, 4000);
}

// Writes damages[first, first + count) of the source into a fresh directory,
// runs the program over it and checks the run.
inline void runDamaged(const damaged::Source& source, const std::vector<damaged::Damage>& damages, size_t first, size_t count,
                       DamagedStats& stats)
{
    testsupport::TempDir dir;
    ASSERT_FALSE(dir.path().empty());
    std::vector<std::string> names;
    std::vector<size_t> sizes;
    for (size_t i = first; i < first + count && i < damages.size(); ++i) {
        const std::string bytes = damages[i].apply(source.bytes);
        names.push_back(damaged::fileName(i, source, damages[i]));
        sizes.push_back(bytes.size());
        tagfix::writeFile(dir / names.back(), bytes);
    }
    testsupport::OpenWatch watch(dir.path());
    ASSERT_TRUE(watch.ok()) << "cannot watch " << dir.path();
    const auto start = std::chrono::steady_clock::now();
    const testsupport::RunResult r = testsupport::runProgram({SONARCAT_BINARY, "--verbose", dir.path()}, damagedEnvironment(),
                                                             30 + static_cast<int>(names.size() / 10));
    stats.runs += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    watch.stop();
    stats.copies += names.size();

    EXPECT_FALSE(r.timedOut) << source.name << ": the run was stopped";
    EXPECT_EQ(r.status, 0) << source.name;
    const std::string sanitizer = sanitizerReport(r.err);
    EXPECT_TRUE(sanitizer.empty()) << source.name << ":\n" << sanitizer;
    if (sanitizer.empty()) {
        EXPECT_NE(r.err.find(kCleanLeakReport), std::string::npos) << source.name << ":\n" << r.err.substr(r.err.size() > 2000 ? r.err.size() - 2000 : 0);
    }
    const std::string problem = reportProblem(r.out, dir.path(), names, sizes);
    EXPECT_TRUE(problem.empty()) << source.name << ": " << problem;

    ASSERT_FALSE(watch.overflowed()) << "events were lost: the files cannot be timed";
    const testsupport::FileTimes times = testsupport::fileTimes(watch, names);
    EXPECT_TRUE(times.unopened.empty()) << times.unopened.size() << " copies never opened, the first " << times.unopened.front();
    int slow = 0;
    for (size_t i = 0; i < names.size(); ++i) {
        if (times.seconds[i] > stats.longest) {
            stats.longest = times.seconds[i];
            stats.slowest = names[i];
        }
        if (times.seconds[i] > kSecondsPerFile && ++slow <= 10) ADD_FAILURE() << names[i] << " took " << times.seconds[i] << " s";
    }
}

inline void printStats(const std::string& what, const DamagedStats& stats)
{
    std::printf("[ damaged  ] %s: %zu copies in %.1f s; the longest file %.1f ms (%s)\n", what.c_str(), stats.copies, stats.runs,
                stats.longest * 1000, stats.slowest.c_str());
}

} // namespace e2e
