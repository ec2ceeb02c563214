// The MediaInfo probes of the file in hand and of the files that come next
// in walk order, made in helper processes (ProbeHelper) while the program
// reads, prints and stores the file in hand.
//
// The program keeps the walk, the tags, the report and the rows, in walk
// order. At each file's turn it tells which files come next, wherever they
// lie in the tree; they wait in a window, in walk order, for a helper with
// room. Each helper (one per core the process may use) has at most a few
// files at a time, so that no helper waits for the program to hand it the
// next one, and the window holds a few more, so that memory stays flat.
//
// A probe keeps everything it gives (facts, failure, traces) until the
// file's turn, where the program uses it exactly where it would have made
// the probe itself: its traces go to the debug report there, its failure is
// thrown there. A file whose size or modification time changed since its
// probe is probed again at its turn. A helper that has not answered within
// the deadline is killed ("MediaInfo Timeout"), one that dies fails its file
// ("MediaInfo Crashed"); either way the file keeps its tags, the helper's
// other files go to another one, and a new helper takes its place. Where no
// helper can be started at all, the probes are made in the program itself,
// without a deadline.
#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <vector>

#include "media/ProbeHelper.h"
#include "media/WalkedFile.h"
#include "zel/File.h"
#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class ProbeAhead : public Object {
public:
    // helpers: how many run at once; timeout: a probe's deadline, zero for
    // none; tagBytes: the probe of an MP3 file reads its tag bytes too;
    // properties: the probe of a file that TagLib reads reads its tags.
    ProbeAhead(unsigned helpers, std::chrono::milliseconds timeout, bool tagBytes = false, bool properties = false);
    // Ends the helpers; those still probing are killed.
    ~ProbeAhead() override;
    ProbeAhead(const ProbeAhead&) = delete;
    ProbeAhead& operator=(const ProbeAhead&) = delete;

    // How many files it probes ahead of the one in hand.
    size_t lookAhead() const { return capacity_ - 1; }
    // The walk is at `file`, and `next` come after it, in walk order: drops
    // the probes of earlier files that were never taken (their tags failed),
    // and queues the files that follow.
    void turn(const WalkedFile& file, const std::vector<const WalkedFile*>& next);
    // The file's facts: its probe's, when it was made ahead and the file
    // still has the size and modification time in `facts`; else, the file
    // changed since the walk looked at it: `facts` are taken again and the
    // file is probed now. Throws the probe's failure; before it, TagLib's
    // (the file's tags could not be read), with no facts. The properties
    // that TagLib read go to `properties`.
    MediaFacts take(const WalkedFile& file, FileFacts& facts, TagProperties* properties = nullptr);
    // The file in hand with the tag bytes that its probe read (waiting for
    // it), when it read them and the file is what the walk found; else null.
    std::unique_ptr<File> tagBytes(const WalkedFile& file);

private:
    // Waits until the probe is done, handing it to a helper first.
    void await(const std::shared_ptr<Probe>& probe);
    // Hands the window's probes to helpers with room, in walk order, and
    // writes each helper's new requests at once.
    void dispatch();
    // A helper with room for one more probe (started when needed), or null;
    // `any`: the least busy helper, whatever its load.
    ProbeHelper* helperWithRoom(bool any);
    // Waits at most `wait` for results (no wait: takes what is there), and
    // ends the helpers past their deadline or gone.
    void collect(std::chrono::milliseconds wait);
    // Takes the results of the helper at `slot`; one that has gone is
    // dropped when idle and lost otherwise.
    void receiveFrom(size_t slot);
    // Ends the helpers whose probe under way is past its deadline.
    void loseOverdue();
    // The helper at `slot` is ended: its first probe fails with `reason`,
    // the others wait for another helper.
    void lose(size_t slot, bool timedOut);
    // The probe of a file: what it asks for besides the facts.
    std::shared_ptr<Probe> probeOf(const WalkedFile& file) const;

    const size_t capacity_; // files in the window
    const std::chrono::milliseconds timeout_;
    const bool tagBytes_;
    const bool properties_;
    std::deque<std::shared_ptr<Probe>> window_;         // the file in hand, then those that come next, in walk order
    std::vector<std::unique_ptr<ProbeHelper>> helpers_; // a slot per helper; empty until one is needed
    bool unavailable_ = false;                          // no helper could be started: probes run in the program
};

} // namespace ZELd
