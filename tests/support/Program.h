// Runs a program for a test: the built sonarcat or any other, with its output
// and error output kept in files (nothing to drain, so a paused program never
// blocks) or on descriptors of the test's, as the user nobody, or with a bound
// on the files it may write. It can be paused, signalled and waited for.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <regex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/TagBuilder.h"

namespace testsupport {

// The ODBC drivers as the system registers them, with psqlODBC's log of every
// connection (CommLog=1 in Debian's odbcinst.ini) switched off: no /tmp/psqlodbc_*.log
// left behind. ODBCSYSINI is set here for the test process too.
inline const std::string& odbcConfiguration()
{
    static const TempDir dir;
    static const std::string path = [] {
        ::chmod(dir.path().c_str(), 0755); // the user nobody runs the program too
        const char* system = std::getenv("ODBCSYSINI");
        const std::string drivers = readFile(std::string(system && *system ? system : "/etc") + "/odbcinst.ini");
        writeFile(dir / "odbcinst.ini",
                  std::regex_replace(drivers, std::regex(R"(^(\s*CommLog\s*=\s*)\d+)", std::regex::multiline), "$010"));
        ::setenv("ODBCSYSINI", dir.path().c_str(), 1);
        return dir.path();
    }();
    return path;
}

// The environment of a user with no locale at all, or with the given LANG,
// and the tests' ODBC configuration.
inline std::vector<std::string> environment(const std::string& lang = "")
{
    std::vector<std::string> env = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "TZ=UTC", "ODBCSYSINI=" + odbcConfiguration()};
    if (!lang.empty()) env.push_back("LANG=" + lang);
    return env;
}

struct Launch {
    std::vector<std::string> env = environment();
    long long fileSizeLimit = 0; // > 0: writes beyond it fail with EFBIG (SIGXFSZ ignored)
    bool asNobody = false;       // run by uid 65534 when the tests run as root
    int out = -1, err = -1;      // standard output and error: -1 a file the result reads, kClosed none, else that descriptor
};
constexpr int kClosed = -2;

struct Result {
    std::string out, err;
    int status = -1, signal = 0; // exit code (-1 when a signal ended it), the signal
    bool timedOut = false;
};

// A copy of the program and its driver modules that nobody may run: the build tree may lie out of its reach.
inline const std::string& nobodysCopy()
{
    static TempDir dir;
    static const std::string copy = [] {
        ::chmod(dir.path().c_str(), 0755);
        for (const auto& e : std::filesystem::directory_iterator(std::filesystem::path(SONARCAT_BINARY).parent_path()))
            if (e.path().filename() == "sonarcat" || e.path().extension() == ".so")
                std::filesystem::copy_file(e.path(), dir / e.path().filename());
        return dir / "sonarcat";
    }();
    return copy;
}

class Program {
public:
    Program(std::vector<std::string> argv, const Launch& launch = {})
    {
        if (launch.asNobody && ::geteuid() == 0) {
            if (argv[0] == SONARCAT_BINARY) argv[0] = nobodysCopy();
            argv.insert(argv.begin(), {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
        }
        std::vector<std::string> env = launch.env;
        std::vector<char*> args, envp;
        for (std::string& a : argv) args.push_back(a.data());
        for (std::string& e : env) envp.push_back(e.data());
        args.push_back(nullptr);
        envp.push_back(nullptr);
        const int out = launch.out == -1 ? ::open((dir_ / "out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644) : launch.out;
        const int err = launch.err == -1 ? ::open((dir_ / "err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644) : launch.err;
        const int in = ::open("/dev/null", O_RDONLY | O_CLOEXEC); // no program started here reads the runner's input
        // Only async-signal-safe calls up to exec.
        if ((pid_ = ::fork()) == 0) {
            ::dup2(in, 0);
            out >= 0 ? ::dup2(out, 1) : ::close(1);
            err >= 0 ? ::dup2(err, 2) : ::close(2);
            const rlimit limit = {static_cast<rlim_t>(launch.fileSizeLimit), static_cast<rlim_t>(launch.fileSizeLimit)};
            if (launch.fileSizeLimit > 0 && (::signal(SIGXFSZ, SIG_IGN), ::setrlimit(RLIMIT_FSIZE, &limit)) != 0) ::_exit(126);
            ::execve(args[0], args.data(), envp.data());
            ::_exit(127);
        }
        ::close(in);
        if (launch.out == -1) ::close(out);
        if (launch.err == -1) ::close(err);
    }
    ~Program()
    {
        if (running()) ::kill(pid_, SIGKILL), wait(0);
    }

    bool running() { return pid_ > 0 && !ended_ && !wait(WNOHANG); }
    // Stops the program where it is (SIGSTOP); false when it has ended.
    bool pause() { return running() && ::kill(pid_, SIGSTOP) == 0 && !wait(WUNTRACED); }
    void resume() { signal(SIGCONT); }
    void signal(int sig)
    {
        if (pid_ > 0 && !ended_) ::kill(pid_, sig);
    }
    // Waits for the end; a program still running after the time is killed.
    Result finish(int timeoutSeconds = 60)
    {
        Result r;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
        while (running() && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(2));
        if ((r.timedOut = running())) ::kill(pid_, SIGKILL), wait(0);
        r.out = testsupport::readFile(dir_ / "out");
        r.err = testsupport::readFile(dir_ / "err");
        r.status = WIFEXITED(status_) ? WEXITSTATUS(status_) : -1;
        r.signal = WIFSIGNALED(status_) ? WTERMSIG(status_) : 0;
        return r;
    }

private:
    // True when the program has ended; false when it goes on or has stopped.
    bool wait(int flags)
    {
        int status = 0;
        if (::waitpid(pid_, &status, flags) != pid_ || WIFSTOPPED(status)) return false;
        status_ = status;
        return ended_ = true;
    }

    TempDir dir_;
    pid_t pid_ = -1;
    bool ended_ = false;
    int status_ = 0;
};

inline Result run(const std::vector<std::string>& argv, const Launch& launch = {}, int timeoutSeconds = 60)
{
    return Program(argv, launch).finish(timeoutSeconds);
}
inline Result sonarcat(std::vector<std::string> args, const Launch& launch = {}, int timeoutSeconds = 60)
{
    args.insert(args.begin(), SONARCAT_BINARY);
    return run(args, launch, timeoutSeconds);
}

// Start and Finish carry wall-clock times; tests compare the rest.
inline std::string maskTimes(const std::string& text)
{
    static const std::regex stamp(R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3})");
    return std::regex_replace(text, stamp, "<time>");
}

// Everything that comes out of fd until its end; fd is closed.
inline std::string drain(int fd)
{
    std::string out;
    char buffer[65536];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) out.append(buffer, static_cast<size_t>(n));
    ::close(fd);
    return out;
}
inline bool has(std::string_view text, std::string_view what) { return text.find(what) != std::string_view::npos; }
inline size_t occurrences(const std::string& text, const std::string& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

// Long runs (label long) set SONARCAT_TEST_SCALE=long: the tests named Scaled*
// then work at the size that only long runs can show.
inline bool longRun() { return std::getenv("SONARCAT_TEST_SCALE") && std::string(std::getenv("SONARCAT_TEST_SCALE")) == "long"; }

#if defined(__SANITIZE_ADDRESS__) ||                                                                                                       \
    defined(__SANITIZE_THREAD__) // it cannot run under valgrind, and its shadow memory grows with the work done
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

} // namespace testsupport
