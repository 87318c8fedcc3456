// Numbers of dates.
//
// A table per thread maps each day from 1970 to 2030 to the second at which it begins. A day on which the
// zone changes has no fixed length; it is marked, and its values go through mktime one by one. The other way
// a small table remembers how far local time is ahead on a day of universal time.
#include "store/smf_values.h"

#include <chrono>
#include <ctime>
#include <memory>

namespace {

constexpr int FirstYear = 1970, FirstDateTimeYear = 1975, LastYear = 2030;
constexpr int DaysAMonth = 32, DaysAYear = 13 * DaysAMonth;
constexpr int Entries = (LastYear - FirstYear + 1) * DaysAYear;
constexpr int64_t SecondsADay = 86400;
constexpr int64_t Unknown = INT64_MIN, Irregular = INT64_MIN + 1;

int64_t clockTime(int year, int month, int day, int hour, int minute, int second) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return std::mktime(&parts);
}

struct DayTable {
    std::unique_ptr<int64_t[]> start{new int64_t[Entries]};
    DayTable() {
        for (int i = 0; i < Entries; ++i) start[i] = Unknown;
    }
};

// Second at which the day begins, or Irregular.
int64_t dayStart(const SMF_DateValue& date) {
    thread_local DayTable table;
    int64_t& entry = table.start[(date.year - FirstYear) * DaysAYear + date.month * DaysAMonth + date.day];
    if (entry == Unknown) {
        int64_t from = clockTime(date.year, date.month, date.day, 0, 0, 0);
        bool plain = clockTime(date.year, date.month, date.day + 1, 0, 0, 0) - from == SecondsADay &&
                     clockTime(date.year, date.month, date.day, 12, 0, 0) - from == SecondsADay / 2;
        entry = plain ? from : Irregular;
    }
    return entry;
}

// Seconds by which local time is ahead of universal time on a day, counted from 1970, or Irregular.
int64_t aheadOn(int64_t day) {
    struct Entry {
        int64_t day = Unknown, ahead = 0;
    };
    constexpr size_t Size = 4096;
    thread_local const std::unique_ptr<Entry[]> table(new Entry[Size]);
    Entry& entry = table[static_cast<uint64_t>(day) % Size];
    if (entry.day == day) return entry.ahead;
    entry.day = day;
    for (time_t hour = 0; hour <= 24; hour += 6) {
        time_t at = day * SecondsADay + hour * 3600 - (hour == 24);
        std::tm parts{};
        if (!localtime_r(&at, &parts)) return entry.ahead = Irregular;
        if (hour > 0 && entry.ahead != parts.tm_gmtoff) return entry.ahead = Irregular;
        entry.ahead = parts.tm_gmtoff;
    }
    return entry.ahead;
}

bool inTable(const SMF_DateValue& date) {
    return date.year >= FirstYear && date.year <= LastYear && date.month >= 0 && date.month <= 12 &&
           date.day >= 0 && date.day < DaysAMonth;
}

}  // namespace

int64_t SMF_TimeOfDate(const SMF_DateValue& date) {
    if (!inTable(date)) return 0;
    int64_t start = dayStart(date);
    return start == Irregular ? clockTime(date.year, date.month, date.day, 0, 0, 0) : start;
}

int64_t SMF_TimeOfDateTime(const SMF_DateValue& date, const SMF_TimeValue& time) {
    if (!inTable(date) || date.year < FirstDateTimeYear) return 0;
    int64_t start = dayStart(date);
    int64_t second = time.hour * 3600 + time.minute * 60 + time.second;
    // Beyond the day's end may lie one on which the zone changes.
    if (start == Irregular || second < 0 || second >= SecondsADay)
        return clockTime(date.year, date.month, date.day, time.hour, time.minute, time.second);
    return start + second;
}

bool SMF_LocalMoment(int64_t seconds, SMF_DateValue& date, SMF_TimeValue& time) {
    constexpr int64_t Earliest = -62167305600, Latest = 253402387200;  // the years 0 to 9999 and a day more
    if (seconds < Earliest || seconds > Latest) return false;
    auto floorDay = [](int64_t value) { return (value - (value < 0 ? SecondsADay - 1 : 0)) / SecondsADay; };
    int64_t ahead = aheadOn(floorDay(seconds));
    if (ahead == Irregular) {
        auto at = static_cast<time_t>(seconds);
        std::tm parts{};
        if (!localtime_r(&at, &parts)) return false;
        ahead = parts.tm_gmtoff;
    }
    int64_t day = floorDay(seconds + ahead);
    std::chrono::year_month_day civil{std::chrono::sys_days{std::chrono::days{day}}};
    int year = int{civil.year()};
    if (year < 0 || year > 9999) return false;
    date = {static_cast<int8_t>(unsigned{civil.day()}), static_cast<int8_t>(unsigned{civil.month()}),
            static_cast<int16_t>(year)};
    auto second = static_cast<int>(seconds + ahead - day * SecondsADay);
    time = {static_cast<int8_t>(second / 3600), static_cast<int8_t>(second / 60 % 60),
            static_cast<int8_t>(second % 60)};
    return true;
}
