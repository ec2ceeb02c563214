#include "zel/DateTime.h"

#include <ctime>
#include <cwctype>

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

long long DateTime::wallClock() const
{
    return ((((year_ * 100LL + month_) * 100 + day_) * 100 + hour_) * 100 + minute_) * 100000LL + second_ * 1000LL + millisecond_;
}

bool DateTime::parse(const std::wstring& text, DateTime& out)
{
    size_t at = 0;
    // The number of `digits` digits at `at`, then the separator `after` (none for L'\0').
    auto number = [&](size_t digits, wchar_t after, int& value) {
        value = 0;
        for (size_t end = at + digits; at < end; ++at) {
            if (at >= text.size() || !std::iswdigit(text[at])) return false;
            value = value * 10 + (text[at] - L'0');
        }
        if (after == L'\0') return true;
        if (at >= text.size() || (text[at] != after && !(after == L' ' && text[at] == L'T'))) return false;
        return ++at, true;
    };
    DateTime t;
    if (!number(4, L'-', t.year_) || !number(2, L'-', t.month_) || !number(2, L' ', t.day_) || !number(2, L':', t.hour_) ||
        !number(2, L':', t.minute_) || !number(2, L'\0', t.second_))
        return false;
    t.millisecond_ = 0;
    if (at < text.size() && text[at] == L'.') {
        int scale = 100;
        for (++at; at < text.size() && std::iswdigit(text[at]); ++at, scale /= 10) t.millisecond_ += (text[at] - L'0') * scale;
    }
    if (at != text.size()) return false;
    out = t;
    return true;
}

} // namespace ZELd
