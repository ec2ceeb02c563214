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

#include "media/Probe.h"
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

// The program's side of one helper.
class ProbeHelper {
public:
    using Clock = Probe::Clock;

    // Starts a helper, which gives each probe `timeout` (zero: for ever)
    // from the moment it begins it; null when none can be started.
    static std::unique_ptr<ProbeHelper> start(std::chrono::milliseconds timeout);
    // Ends the helper (killed when it is still probing) and waits for it.
    ~ProbeHelper();
    ProbeHelper(const ProbeHelper&) = delete;
    ProbeHelper& operator=(const ProbeHelper&) = delete;

    // The descriptor its results arrive on.
    int replies() const { return replies_; }
    // The probes it has and has not answered yet, the first one under way.
    const std::deque<std::shared_ptr<Probe>>& queue() const { return queue_; }

    // Hands a probe over; its path reaches the helper at the next flush.
    void send(const std::shared_ptr<Probe>& probe);
    // Writes the paths of the probes handed over since the last flush, in
    // one piece: the helper wakes once for all of them.
    void flush();
    // Takes what has arrived: each whole result goes to the first probe of
    // the queue, also when the helper is gone. False when it has gone (its
    // output closed, or it wrote what is no result).
    bool receive();
    // Kills the helper when `kill`, waits for its end and says how it ended
    // ("SIGSEGV", "exit status 1"). The probes it had are left to the caller.
    String end(bool kill);
    // Takes the probes it had not answered.
    std::deque<std::shared_ptr<Probe>> takeQueue();

private:
    ProbeHelper(pid_t pid, int requests, int replies, std::chrono::milliseconds timeout)
        : pid_(pid), requests_(requests), replies_(replies), timeout_(timeout)
    {}

    pid_t pid_;
    int requests_, replies_;
    const std::chrono::milliseconds timeout_;
    std::deque<std::shared_ptr<Probe>> queue_;
    std::string unsent_;   // the requests not written yet
    std::string received_; // the part of a result that has arrived
};

} // namespace ZELd
