#include "zel/DateTime.h"

#include <ctime>

namespace ZELd {

DateTime DateTime::getCurrentLocalTime()
{
    struct timespec now;
    ::clock_gettime(CLOCK_REALTIME, &now);
    DateTime t;
    t.assign(now.tv_sec * 1000LL + now.tv_nsec / 1000000);
    return t;
}

DateTime& DateTime::assign(long long ms)
{
    long long seconds = ms / 1000;
    long long rest = ms % 1000;
    if (rest < 0) {
        rest += 1000;
        --seconds;
    }
    time_t when = static_cast<time_t>(seconds);
    struct tm local;
    if (!::localtime_r(&when, &local)) return *this;
    year_ = local.tm_year + 1900;
    month_ = local.tm_mon + 1;
    day_ = local.tm_mday;
    hour_ = local.tm_hour;
    minute_ = local.tm_min;
    second_ = local.tm_sec;
    millisecond_ = static_cast<int>(rest);
    return *this;
}

String DateTime::toString() const
{
    return String::format(L"%04d-%02d-%02d %02d:%02d:%02d.%03d", year_, month_, day_, hour_, minute_, second_, millisecond_);
}

} // namespace ZELd
