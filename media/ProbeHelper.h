// A helper process that probes files with MediaInfo for the program.
//
// libmediainfo loops forever on some damaged files and may crash on others,
// and a thread that never returns cannot be abandoned; a process can. The
// program runs its own executable again as a helper (kProbeHelperWord),
// with a pipe on the helper's standard input for the paths and one on its
// standard output for the results (ProbeResult messages), in the order of
// the paths. Its standard error is the program's. A helper runs on one
// thread with its own copy of the library, and ends when its input closes
// or the program dies.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <memory>
#include <string>

#include "media/ProbeResult.h"
#include "zel/String.h"

namespace ZELd {

// A helper process is started with these two arguments, and nothing else:
// its name, and the word that makes the program a helper. (A tool that runs
// the program, such as valgrind, may change the name but not the word.)
inline constexpr char kProbeHelperName[] = "sonarcat-probe";
inline constexpr char kProbeHelperWord[] = "--probe-helper-of-sonarcat";

// The helper's side: reads paths until its input ends, answers each. Returns
// the process's exit code.
int serveProbes();

// One probe on its way: the file, and its result once it came back.
struct PendingProbe {
    explicit PendingProbe(String path) : path(std::move(path)) {}
    const String path;
    bool sent = false; // a helper has it
    bool done = false;
    ProbeResult result;
};

// The program's side of one helper.
class ProbeHelper {
public:
    using Clock = std::chrono::steady_clock;

    // Starts a helper; null when none can be started.
    static std::unique_ptr<ProbeHelper> start();
    // Ends the helper (killed when it is still probing) and waits for it.
    ~ProbeHelper();
    ProbeHelper(const ProbeHelper&) = delete;
    ProbeHelper& operator=(const ProbeHelper&) = delete;

    // The descriptor its results arrive on.
    int replies() const { return replies_; }
    // The probes it has and has not answered yet, the first one under way.
    const std::deque<std::shared_ptr<PendingProbe>>& queue() const { return queue_; }
    // When it began the probe under way (as far as the program saw).
    Clock::time_point busySince() const { return busySince_; }

    // Hands a probe over.
    void send(const std::shared_ptr<PendingProbe>& probe);
    // Takes what has arrived: each whole result goes to the first probe of
    // the queue, also when the helper is gone. False when it has gone (its
    // output closed, or it wrote what is no result).
    bool receive();
    // Kills the helper when `kill`, waits for its end and says how it ended
    // ("SIGSEGV", "exit status 1"). The probes it had are left to the caller.
    String end(bool kill);
    // Takes the probes it had not answered.
    std::deque<std::shared_ptr<PendingProbe>> takeQueue();

private:
    ProbeHelper(pid_t pid, int requests, int replies) : pid_(pid), requests_(requests), replies_(replies) {}

    pid_t pid_;
    int requests_, replies_;
    std::deque<std::shared_ptr<PendingProbe>> queue_;
    std::string received_; // the part of a result that has arrived
    Clock::time_point busySince_{};
};

} // namespace ZELd
