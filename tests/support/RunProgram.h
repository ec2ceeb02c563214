// Runs a program with given arguments and environment and collects what it writes.
#pragma once

#include <cerrno>
#include <chrono>
#include <csignal>
#include <poll.h>
#include <regex>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace testsupport {

struct RunResult {
    std::string out;
    std::string err;
    int status = -1;      // exit code, or -1 when killed
    bool timedOut = false;
};

// Appends what one of a program's pipes has ready to its sink; at the end of
// the pipe, or on an error, closes it and counts it off.
inline void readReady(pollfd& pipe, std::string& sink, int& open)
{
    if (pipe.fd < 0 || !(pipe.revents & (POLLIN | POLLHUP | POLLERR))) return;
    char buf[65536];
    const ssize_t n = ::read(pipe.fd, buf, sizeof buf);
    if (n > 0) {
        sink.append(buf, static_cast<size_t>(n));
    } else if (n == 0 || errno != EINTR) {
        ::close(pipe.fd);
        pipe.fd = -1;
        --open;
    }
}

inline RunResult runProgram(const std::vector<std::string>& args, const std::vector<std::string>& env, int timeoutSeconds = 60)
{
    RunResult r;
    int outPipe[2], errPipe[2];
    if (::pipe(outPipe) != 0 || ::pipe(errPipe) != 0) return r;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
    posix_spawn_file_actions_addclose(&actions, outPipe[0]);
    posix_spawn_file_actions_addclose(&actions, errPipe[0]);
    // Only 1 and 2 stay: a daemon that the program starts must not hold the pipes open.
    posix_spawn_file_actions_addclose(&actions, outPipe[1]);
    posix_spawn_file_actions_addclose(&actions, errPipe[1]);
    std::vector<char*> argv, envp;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    for (const std::string& e : env) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);
    pid_t pid;
    int rc = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    if (rc != 0) {
        ::close(outPipe[0]);
        ::close(errPipe[0]);
        return r;
    }
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    std::string* sinks[2] = {&r.out, &r.err};
    int open = 2;
    while (open > 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
        if (left <= 0) {
            r.timedOut = true;
            ::kill(pid, SIGKILL);
            break;
        }
        if (::poll(fds, 2, static_cast<int>(left)) < 0 && errno != EINTR) break;
        for (int i = 0; i < 2; ++i) readReady(fds[i], *sinks[i], open);
    }
    for (pollfd& f : fds)
        if (f.fd >= 0) ::close(f.fd);
    int status = 0;
    ::waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
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
