// A program started in the background, to be paused, signalled or waited
// for while the test watches what it does. Its output is collected all along,
// so that a full pipe never holds it up.
#pragma once

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace testsupport {

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

struct Ending {
    std::string out;
    std::string err;
    int exitCode = -1; // -1 when ended by a signal
    int signal = 0;    // the signal that ended it
    bool timedOut = false;
};

class SpawnedProgram {
public:
    // fileSizeLimit > 0: no file the program writes may grow beyond that many
    // bytes; SIGXFSZ is ignored, so such a write fails with EFBIG instead of
    // ending the program.
    SpawnedProgram(const std::vector<std::string>& args, const std::vector<std::string>& env, long long fileSizeLimit = 0)
    {
        int outPipe[2], errPipe[2];
        if (::pipe2(outPipe, O_CLOEXEC) != 0) return;
        if (::pipe2(errPipe, O_CLOEXEC) != 0) {
            ::close(outPipe[0]);
            ::close(outPipe[1]);
            return;
        }
        std::vector<char*> argv, envp;
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        for (const std::string& e : env) envp.push_back(const_cast<char*>(e.c_str()));
        envp.push_back(nullptr);
        pid_ = ::fork();
        if (pid_ == 0) {
            // Only async-signal-safe calls between fork and exec.
            ::dup2(outPipe[1], 1);
            ::dup2(errPipe[1], 2);
            if (fileSizeLimit > 0) {
                ::signal(SIGXFSZ, SIG_IGN);
                const rlimit limit = {static_cast<rlim_t>(fileSizeLimit), static_cast<rlim_t>(fileSizeLimit)};
                if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) ::_exit(126);
            }
            ::execve(argv[0], argv.data(), envp.data());
            ::_exit(127);
        }
        ::close(outPipe[1]);
        ::close(errPipe[1]);
        if (pid_ < 0) {
            ::close(outPipe[0]);
            ::close(errPipe[0]);
            return;
        }
        reader_ = std::thread([this, out = outPipe[0], err = errPipe[0]] { collect(out, err); });
    }

    ~SpawnedProgram()
    {
        if (pid_ > 0 && !ended_) {
            ::kill(pid_, SIGKILL);
            int status = 0;
            ::waitpid(pid_, &status, 0);
        }
        abandon_ = true;
        if (reader_.joinable()) reader_.join();
    }

    SpawnedProgram(const SpawnedProgram&) = delete;
    SpawnedProgram& operator=(const SpawnedProgram&) = delete;

    bool started() const { return pid_ > 0; }

    bool running()
    {
        if (pid_ <= 0 || ended_) return false;
        int status = 0;
        if (::waitpid(pid_, &status, WNOHANG) == pid_) end(status);
        return !ended_;
    }

    // Stops the program where it is; false when it has ended already.
    bool pause()
    {
        if (!running()) return false;
        ::kill(pid_, SIGSTOP);
        int status = 0;
        for (;;) {
            pid_t r = ::waitpid(pid_, &status, WUNTRACED);
            if (r == pid_ && WIFSTOPPED(status)) return true;
            if (r == pid_) {
                end(status);
                return false;
            }
            if (errno != EINTR) return false;
        }
    }

    void resume()
    {
        if (pid_ > 0 && !ended_) ::kill(pid_, SIGCONT);
    }

    void signal(int sig)
    {
        if (pid_ > 0 && !ended_) ::kill(pid_, sig);
    }

    // Waits for the end of the program and of its output; a program still
    // running, or whose output is still open, after the time is killed.
    Ending finish(int timeoutSeconds = 60)
    {
        Ending e;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
        // What the program left running may hold its output open.
        while (running() || (reader_.joinable() && !collected_)) {
            if (std::chrono::steady_clock::now() >= deadline) {
                e.timedOut = true;
                abandon_ = true;
                if (running()) {
                    ::kill(pid_, SIGKILL);
                    int status = 0;
                    ::waitpid(pid_, &status, 0);
                    end(status);
                }
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        if (reader_.joinable()) reader_.join();
        e.out = out_;
        e.err = err_;
        if (WIFEXITED(status_)) e.exitCode = WEXITSTATUS(status_);
        if (WIFSIGNALED(status_)) e.signal = WTERMSIG(status_);
        return e;
    }

private:
    void end(int status)
    {
        ended_ = true;
        status_ = status;
    }

    void collect(int out, int err)
    {
        pollfd fds[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
        std::string* sinks[2] = {&out_, &err_};
        int open = 2;
        while (open > 0 && !abandon_) {
            if (::poll(fds, 2, 50) < 0) {
                if (errno == EINTR) continue;
                break;
            }
            for (int i = 0; i < 2; ++i) readReady(fds[i], *sinks[i], open);
        }
        for (pollfd& f : fds)
            if (f.fd >= 0) ::close(f.fd);
        collected_ = true;
    }

    pid_t pid_ = -1;
    bool ended_ = false;
    int status_ = 0;
    std::atomic<bool> collected_{false}, abandon_{false};
    std::thread reader_;
    std::string out_, err_; // written by the reader only, read once it is done
};

} // namespace testsupport
