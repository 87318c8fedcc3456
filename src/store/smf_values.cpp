// Numbers of dates.
//
// A table per thread maps each day from 1970 to 2030 to the second at which it begins. A day on which the
// zone changes has no fixed length; it is marked, and its values go through mktime one by one.
#include "store/smf_values.h"

#include <ctime>
#include <memory>

namespace {

constexpr int FirstYear = 1970, FirstDateTimeYear = 1975, LastYear = 2030;
constexpr int DaysAMonth = 32, DaysAYear = 13 * DaysAMonth;
constexpr int Entries = (LastYear - FirstYear + 1) * DaysAYear;
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
        bool plain = clockTime(date.year, date.month, date.day + 1, 0, 0, 0) - from == 86400 &&
                     clockTime(date.year, date.month, date.day, 12, 0, 0) - from == 43200;
        entry = plain ? from : Irregular;
    }
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
    if (start == Irregular)
        return clockTime(date.year, date.month, date.day, time.hour, time.minute, time.second);
    return start + time.hour * 3600 + time.minute * 60 + time.second;
}
