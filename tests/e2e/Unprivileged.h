// Running the program as an unprivileged user. Root reads every file and
// directory whatever its mode, so tests of permissions run a copy of the
// program as nobody (uid 65534) through setpriv; a copy, because nobody may not
// be able to reach the build tree. Driver modules are copied beside it.
#pragma once

#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "e2e/Program.h"
#include "support/TempDir.h"

namespace e2e {

inline constexpr uid_t kNobody = 65534;

class Unprivileged {
public:
    Unprivileged()
    {
        if (::geteuid() != 0) return;
        ::chmod(bin_.path().c_str(), 0755);
        const std::filesystem::path built(SONARCAT_BINARY);
        for (const auto& entry : std::filesystem::directory_iterator(built.parent_path())) {
            const std::string name = entry.path().filename().string();
            if (name != "sonarcat" && !(name.starts_with("libZEL") && name.ends_with(".so"))) continue;
            std::filesystem::copy_file(entry.path(), bin_ / name);
            ::chmod((bin_ / name).c_str(), 0755);
        }
    }

    testsupport::RunResult run(const std::vector<std::string>& args, int timeoutSeconds = 60) const
    {
        std::vector<std::string> argv;
        if (::geteuid() == 0)
            argv = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", bin_ / "sonarcat"};
        else
            argv = {SONARCAT_BINARY};
        argv.insert(argv.end(), args.begin(), args.end());
        return testsupport::runProgram(argv, testsupport::plainEnvironment(), timeoutSeconds);
    }

    // Gives a path to nobody when the tests run as root.
    static void handOver(const std::string& path)
    {
        if (::geteuid() == 0 && ::chown(path.c_str(), kNobody, kNobody) != 0) return;
    }

private:
    testsupport::TempDir bin_;
};

} // namespace e2e
