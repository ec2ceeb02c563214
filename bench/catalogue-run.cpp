// Runs sonarcat once over a tree into a fresh catalogue of one engine, made
// and dropped as the tests make theirs (tests/support/Catalogue.h), with the
// report sent to /dev/null; prints the run's wall time in seconds, or nothing
// and status 3 when the engine's server is not reachable here.
//   catalogue-run ENGINE SONARCAT TREE      (ENGINE "none": no catalogue)
//   catalogue-run --engines                 the engines, one a line
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>

#include "support/Catalogue.h"

extern char** environ;

int main(int argc, char** argv)
{
    if (argc == 2 && std::string(argv[1]) == "--engines") {
        for (const std::string& name : testsupport::engineNames()) std::printf("%s\n", name.c_str());
        return 0;
    }
    if (argc != 4) {
        std::fprintf(stderr, "usage: catalogue-run ENGINE SONARCAT TREE\n");
        return 2;
    }
    const std::string engine = argv[1];
    const testsupport::Catalogue catalogue(engine == "none" ? "SQLite" : engine);
    if (catalogue.database().empty()) {
        std::fprintf(stderr, "%s\n", catalogue.unreachable().c_str());
        return 3;
    }
    std::string database = "--database=" + catalogue.database();
    char* args[] = {argv[2], database.data(), argv[3], nullptr};
    if (engine == "none") args[1] = argv[3], args[2] = nullptr;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid;
    int status = 0;
    if (posix_spawn(&pid, argv[2], &actions, nullptr, args, environ) != 0 || waitpid(pid, &status, 0) != pid) return 1;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    posix_spawn_file_actions_destroy(&actions);
    if (engine != "none" && catalogue.count("STOR_FILE") == "0") {
        std::fprintf(stderr, "catalogue-run: %s stored nothing\n", engine.c_str());
        return 1;
    }
    std::printf("%.3f\n", seconds);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
