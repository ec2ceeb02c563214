#define ZEL_SOURCE "media/Probe"
#include "media/Probe.h"

namespace ZELd {

void Probe::begin(Clock::time_point now, std::chrono::milliseconds timeout)
{
    deadline_ = timeout.count() > 0 ? now + timeout : Clock::time_point::max();
}

void Probe::finish(ProbeResult&& result)
{
    result_ = std::move(result);
    state_ = State::Done;
}

void Probe::lose(const String& reason)
{
    result_ = ProbeResult::lost(reason);
    state_ = State::Done;
}

void Probe::requeue()
{
    state_ = State::Waiting;
    deadline_ = Clock::time_point::max();
}

} // namespace ZELd
