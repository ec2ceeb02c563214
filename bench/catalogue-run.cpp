// Runs sonarcat over a tree into a fresh catalogue of one engine, made and
// dropped as the tests make theirs (tests/support/Catalogue.h), with the
// report sent to /dev/null; status 3, and nothing printed, when the engine's
// server is not reachable here.
//   catalogue-run ENGINE SONARCAT TREE           one run: its wall time in seconds (ENGINE "none": no catalogue)
//   catalogue-run --update ENGINE SONARCAT TREE  a run that fills the catalogue, then two --update runs, one over
//                                                the tree as it is and one after 1% of its files were touched:
//                                                their wall times in seconds and the first one's peak memory in KB
//   catalogue-run --engines                      the engines, one a line
// Options of the program (--all-formats, ...) may come first: every run of it gets them.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include "support/Catalogue.h"

extern char** environ;

namespace {

// Runs the program with its output to /dev/null; its wall time in seconds, or a negative time when it failed.
double timed(std::vector<std::string> argv, long* peakKb = nullptr)
{
    std::vector<char*> args;
    for (std::string& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid;
    int status = 0;
    rusage usage{};
    const bool ran = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ) == 0 && wait4(pid, &status, 0, &usage) == pid;
    posix_spawn_file_actions_destroy(&actions);
    if (peakKb) *peakKb = usage.ru_maxrss;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return ran && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? seconds : -1;
}

// Moves the modification time of every hundredth file on by a second.
void touchOnePercent(const std::string& tree)
{
    size_t n = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(tree))
        if (entry.is_regular_file() && n++ % 100 == 0)
            std::filesystem::last_write_time(entry.path(), entry.last_write_time() + std::chrono::seconds(1));
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> options; // the program's, handed to each of its runs
    while (argc > 2 && std::string(argv[1]).rfind("--", 0) == 0 && std::string(argv[1]) != "--update" &&
           std::string(argv[1]) != "--engines")
        options.push_back(argv[1]), ++argv, --argc;
    const auto with = [&](std::vector<std::string> argv) {
        argv.insert(argv.begin() + 1, options.begin(), options.end());
        return argv;
    };
    if (argc == 2 && std::string(argv[1]) == "--engines") {
        for (const std::string& name : testsupport::engineNames()) std::printf("%s\n", name.c_str());
        return 0;
    }
    const bool update = argc == 5 && std::string(argv[1]) == "--update";
    if (argc != 4 && !update) {
        std::fprintf(stderr, "usage: catalogue-run [OPTION]... [--update] ENGINE SONARCAT TREE\n");
        return 2;
    }
    const std::string engine = argv[argc - 3], sonarcat = argv[argc - 2], tree = argv[argc - 1];
    const testsupport::Catalogue catalogue(engine == "none" ? "SQLite" : engine);
    if (catalogue.database().empty()) {
        std::fprintf(stderr, "%s\n", catalogue.unreachable().c_str());
        return 3;
    }
    const std::string database = "--database=" + catalogue.database();
    if (!update) {
        const double seconds = engine == "none" ? timed(with({sonarcat, tree})) : timed(with({sonarcat, database, tree}));
        if (engine != "none" && catalogue.count("STOR_FILE") == "0") {
            std::fprintf(stderr, "catalogue-run: %s stored nothing\n", engine.c_str());
            return 1;
        }
        std::printf("%.3f\n", seconds);
        return seconds < 0;
    }
    long peak = 0;
    if (timed(with({sonarcat, database, tree})) < 0) return 1;
    const double unchanged = timed(with({sonarcat, "--update", database, tree}), &peak);
    touchOnePercent(tree);
    const double changed = timed(with({sonarcat, "--update", database, tree}));
    std::printf("%.3f %.3f %ld\n", unchanged, changed, peak);
    return unchanged < 0 || changed < 0;
}
