#define ZEL_SOURCE "media/ProbeHelper"
#include "media/ProbeHelper.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "zel/Exception.h"
#include "zel/FileName.h"

extern char** environ;

namespace ZELd {

namespace {

constexpr int kFirstFreeDescriptor = 3;  // above standard input, output and error
constexpr size_t kReadPiece = 64 * 1024; // what one read of results takes at most

// A descriptor at kFirstFreeDescriptor or above, closed on exec: a program
// started with a standard descriptor closed gets that number for its next
// file, which would then be mistaken for the helper's own.
int aboveStandard(int fd)
{
    if (fd < 0 || fd >= kFirstFreeDescriptor) return fd;
    const int moved = ::fcntl(fd, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
    ::close(fd);
    return moved;
}

// The running executable, held open from the first helper on: a helper
// is the same program even when the file was replaced since (an upgrade).
// Opened by name /proc/self/exe, which also gives the program under valgrind.
const std::string& executable()
{
    static const std::string path = [] {
        const int fd = aboveStandard(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
        return fd < 0 ? std::string() : "/proc/self/fd/" + std::to_string(fd);
    }();
    return path;
}

// Moves n bytes through fd with op (::read or ::write), going on after a
// short or interrupted call; false at the end of the input or on an error.
template <class Op, class Byte>
bool moveAll(Op op, int fd, Byte* p, size_t n)
{
    while (n > 0) {
        const ssize_t k = op(fd, p, n);
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) return false;
        p += k, n -= static_cast<size_t>(k);
    }
    return true;
}

// The program's environment, with the C library's allocator alone: nobody asks
// a helper for its blocks, and it spends its time in the library's allocations.
std::vector<char*> helperEnvironment()
{
    static char plain[] = "ZEL_ALLOCATOR=plain";
    std::vector<char*> entries{plain};
    for (char** e = environ; *e; ++e)
        if (std::strncmp(*e, "ZEL_ALLOCATOR=", 14) != 0) entries.push_back(*e);
    entries.push_back(nullptr);
    return entries;
}

String howItEnded(int status)
{
    if (WIFSIGNALED(status)) {
        const char* name = ::sigabbrev_np(WTERMSIG(status));
        return name ? String(L"SIG") + fromNativePath(name) : String::format(L"signal %d", WTERMSIG(status));
    }
    return String::format(L"exit status %d", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
}

} // namespace

int serveProbes()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL); // a probe that never returns ends with the program
    // Standard output carries the results; what the library might print goes nowhere.
    const int results = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (results < 0 || nowhere < 0 || ::dup2(nowhere, STDOUT_FILENO) < 0) return 1;
    // The requests, as many as have come: a length, what is asked for
    // besides the facts (ProbeResult::Asks, one byte), then the path's bytes.
    std::string requests, reply;
    size_t at = 0;
    char piece[kReadPiece];
    for (;;) {
        uint32_t length;
        constexpr size_t kHead = sizeof length + 1;
        if (requests.size() - at >= kHead) {
            std::memcpy(&length, requests.data() + at, sizeof length);
            if (requests.size() - at - kHead >= length) {
                const auto asks = static_cast<uint8_t>(requests[at + sizeof length]);
                const char* path = requests.data() + at + kHead;
                at += kHead + length;
                reply.clear();
                ProbeResult::probe(fromNativePath(path, length), asks).encode(reply);
                if (!moveAll(::write, results, reply.data(), reply.size())) return 1;
                continue;
            }
        }
        requests.erase(0, std::exchange(at, 0));
        const ssize_t n = ::read(STDIN_FILENO, piece, sizeof piece);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return requests.empty() ? 0 : 1; // the program ended the helper's input, or it is gone
        requests.append(piece, static_cast<size_t>(n));
    }
}

std::unique_ptr<ProbeHelper> ProbeHelper::start(std::chrono::milliseconds timeout)
{
    if (executable().empty()) return nullptr;
    int requests[2], replies[2];
    if (::pipe2(requests, O_CLOEXEC) != 0) return nullptr;
    if (::pipe2(replies, O_CLOEXEC) != 0) {
        ::close(requests[0]), ::close(requests[1]);
        return nullptr;
    }
    bool moved = true;
    for (int* fd : {&requests[0], &requests[1], &replies[0], &replies[1]}) moved = (*fd = aboveStandard(*fd)) >= 0 && moved;
    auto closeAll = [&] {
        for (int fd : {requests[0], requests[1], replies[0], replies[1]})
            if (fd >= 0) ::close(fd);
    };
    if (!moved) return closeAll(), nullptr;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, requests[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, replies[1], STDOUT_FILENO);
    char name[sizeof kProbeHelperName], word[sizeof kProbeHelperWord];
    std::memcpy(name, kProbeHelperName, sizeof name);
    std::memcpy(word, kProbeHelperWord, sizeof word);
    char* argv[] = {name, word, nullptr};
    std::vector<char*> environment = helperEnvironment();
    pid_t pid = -1;
    const int failed = ::posix_spawn(&pid, executable().c_str(), &actions, nullptr, argv, environment.data());
    ::posix_spawn_file_actions_destroy(&actions);
    if (failed) return closeAll(), nullptr;
    ::close(requests[0]), ::close(replies[1]);
    ::fcntl(replies[0], F_SETFL, O_NONBLOCK);
    return std::unique_ptr<ProbeHelper>(new ProbeHelper(pid, requests[1], replies[0], timeout));
}

ProbeHelper::~ProbeHelper()
{
    if (pid_ > 0) end(!queue_.empty());
}

void ProbeHelper::send(const std::shared_ptr<Probe>& probe)
{
    const std::string& native = probe->path();
    const auto length = static_cast<uint32_t>(native.size());
    unsent_.append(reinterpret_cast<const char*>(&length), sizeof length);
    unsent_ += static_cast<char>(probe->asks());
    unsent_ += native;
    probe->sent();
    if (queue_.empty()) probe->begin(Clock::now(), timeout_);
    queue_.push_back(probe);
}

void ProbeHelper::flush()
{
    if (unsent_.empty()) return;
    // A helper that is gone fails the write; its closed output tells the caller.
    moveAll(::write, requests_, unsent_.data(), unsent_.size());
    unsent_.clear();
}

bool ProbeHelper::receive()
{
    char piece[kReadPiece];
    bool gone = false; // the end of its output, or an error
    for (;;) {
        const ssize_t n = ::read(replies_, piece, sizeof piece);
        if (n > 0) {
            received_.append(piece, static_cast<size_t>(n));
            if (static_cast<size_t>(n) < sizeof piece) break; // all there was: the next poll tells of more, or of the end
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        gone = !(n < 0 && errno == EAGAIN);
        break;
    }
    // What a helper answered before it died is its answer: the probe it died in is the one that fails.
    try {
        size_t used;
        ProbeResult result;
        while ((used = ProbeResult::decode(received_.data(), received_.size(), result)) > 0) {
            received_.erase(0, used);
            if (queue_.empty()) return false; // an answer to no question
            queue_.front()->finish(std::move(result));
            queue_.pop_front();
            if (!queue_.empty()) queue_.front()->begin(Clock::now(), timeout_);
        }
    } catch (Exception* e) {
        e->destroy();
        return false;
    }
    return !gone;
}

String ProbeHelper::end(bool kill)
{
    if (pid_ <= 0) return String();
    ::close(requests_); // an idle helper ends at the end of its input
    if (kill) ::kill(pid_, SIGKILL);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {}
    ::close(replies_);
    pid_ = -1;
    return howItEnded(status);
}

std::deque<std::shared_ptr<Probe>> ProbeHelper::takeQueue() { return std::exchange(queue_, {}); }

} // namespace ZELd
