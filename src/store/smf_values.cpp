// Numbers of dates.
//
// A table per thread maps each day from 1970 to 2030 to the second at which it begins. A day on which the
// zone changes has no fixed length; it is marked, and its values go through mktime one by one. The other way
// a table by days remembers how far local time is ahead on a day of universal time, and the day's date.
#include "store/smf_values.h"

#include <bit>
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

// What is known of a day, counted from 1970.
struct DayEntry {
    int64_t day = Unknown;
    int64_t ahead = Irregular;  // seconds by which local time is ahead of universal time on this day of the
                                // latter, or Irregular
    SMF_DateValue date;         // of this day
    bool isDate = false;        // in the years 0 to 9999
};

int64_t aheadOn(int64_t day) {
    int64_t ahead = 0;
    for (time_t hour = 0; hour <= 24; hour += 6) {
        time_t at = day * SecondsADay + hour * 3600 - (hour == 24);
        std::tm parts{};
        if (!localtime_r(&at, &parts)) return Irregular;
        if (hour > 0 && ahead != parts.tm_gmtoff) return Irregular;
        ahead = parts.tm_gmtoff;
    }
    return ahead;
}

void fillDay(DayEntry& entry, int64_t day) {
    std::chrono::year_month_day civil{std::chrono::sys_days{std::chrono::days{day}}};
    int year = int{civil.year()};
    entry.day = day;
    entry.ahead = aheadOn(day);
    entry.isDate = year >= 0 && year <= 9999;
    entry.date = {static_cast<int8_t>(unsigned{civil.day()}), static_cast<int8_t>(unsigned{civil.month()}),
                  static_cast<int16_t>(year)};
}

const DayEntry& dayEntry(int64_t day) {
    constexpr size_t Size = 16384;  // 44 years
    thread_local const std::unique_ptr<DayEntry[]> table(new DayEntry[Size]);
    DayEntry& entry = table[static_cast<uint64_t>(day) % Size];
    if (entry.day != day) [[unlikely]]
        fillDay(entry, day);
    return entry;
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
    int64_t day = (seconds - (seconds < 0 ? SecondsADay - 1 : 0)) / SecondsADay;
    const DayEntry* local = &dayEntry(day);
    int64_t ahead = local->ahead;
    if (ahead == Irregular) [[unlikely]] {
        auto at = static_cast<time_t>(seconds);
        std::tm parts{};
        if (!localtime_r(&at, &parts)) return false;
        ahead = parts.tm_gmtoff;
    }
    int64_t second = seconds + ahead - day * SecondsADay;
    for (; second < 0; second += SecondsADay) local = &dayEntry(--day);
    for (; second >= SecondsADay; second -= SecondsADay) local = &dayEntry(++day);
    if (!local->isDate) return false;
    date = local->date;
    auto rest = static_cast<uint32_t>(second);
    time = std::bit_cast<SMF_TimeValue>(rest / 3600 | rest / 60 % 60 << 8 | rest % 60 << 16);
    return true;
}
