// A local wall-clock time with milliseconds.
#pragma once

#include "zel/Object.h"
#include "zel/String.h"

namespace ZELd {

class DateTime {
public:
    DateTime() = default; // 1970-01-01 00:00:00.000

    static DateTime getCurrentLocalTime();
    // Milliseconds since 1970-01-01 UTC (as Files::time gives them), turned
    // into the local wall-clock time.
    DateTime& assign(long long millisecondsSinceEpoch);

    // "YYYY-MM-DD HH:MM:SS.mmm"
    String toString() const;
    // The time of text as databases give a timestamp back: "YYYY-MM-DD
    // HH:MM:SS", a 'T' or a blank between date and time, and a fraction of a
    // second of any number of digits or none (cut to milliseconds). False,
    // and out unchanged, for any other text.
    static bool parse(const std::wstring& text, DateTime& out);
    friend bool operator==(const DateTime&, const DateTime&) = default;
    // The wall-clock time as one number, YYYYMMDDhhmmssmmm: equal for equal texts.
    long long wallClock() const;

    int year() const { return year_; }
    int month() const { return month_; }
    int day() const { return day_; }
    int hour() const { return hour_; }
    int minute() const { return minute_; }
    int second() const { return second_; }
    int millisecond() const { return millisecond_; }

private:
    int year_ = 1970, month_ = 1, day_ = 1, hour_ = 0, minute_ = 0, second_ = 0, millisecond_ = 0;
};

} // namespace ZELd
