// One file's MediaInfo probe, from the moment the walk hands it over to its
// result: waiting for a helper, sent to one, under way against its deadline
// once its helper begins it, and done, with a result or lost with its helper.
// Its state changes here and nowhere else.
#pragma once

#include <chrono>
#include <string>

#include "media/ProbeResult.h"
#include "zel/String.h"

namespace ZELd {

class Probe {
public:
    using Clock = std::chrono::steady_clock;

    // path: the file as the system takes it (bytes); asks: what is read
    // with its facts (ProbeResult::Asks: its tag bytes, its properties).
    explicit Probe(std::string path, uint8_t asks = ProbeResult::kFactsOnly) : path_(std::move(path)), asks_(asks) {}

    const std::string& path() const { return path_; }
    uint8_t asks() const { return asks_; }
    bool wantsTagBytes() const { return (asks_ & ProbeResult::kTagBytes) != 0; }
    // No helper has it and it is not done.
    bool waiting() const { return state_ == State::Waiting; }
    bool done() const { return state_ == State::Done; }
    const ProbeResult& result() const { return result_; }
    ProbeResult& result() { return result_; }

    // A helper took it.
    void sent() { state_ = State::Sent; }
    // Its helper began it: from now it has `timeout` (zero: for ever).
    void begin(Clock::time_point now, std::chrono::milliseconds timeout);
    // Its deadline, when it has one.
    bool hasDeadline() const { return state_ == State::Sent && deadline_ != Clock::time_point::max(); }
    Clock::time_point deadline() const { return deadline_; }
    bool overdue(Clock::time_point now) const { return hasDeadline() && now >= deadline_; }
    // Its result came, or it was made in the program itself.
    void finish(ProbeResult&& result);
    // Its helper timed out or died while on it: a failure that stands
    // whatever the file looks like at its turn ("MediaInfo Timeout").
    void lose(const String& reason);
    // Its helper ended before it began it: it waits for another.
    void requeue();

private:
    enum class State { Waiting, Sent, Done };

    const std::string path_;
    const uint8_t asks_;
    State state_ = State::Waiting;
    Clock::time_point deadline_ = Clock::time_point::max();
    ProbeResult result_;
};

} // namespace ZELd
