// Dispatch of `fs` and its date values.

#include "ipe/nt/ipe_fs.h"

#include <algorithm>
#include <ctime>

#include "ipe/nt/ipe_fscommands.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"

namespace {

constexpr int64_t kLastYear = 9999;

bool isLeap(int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int daysOf(int64_t year, int64_t month) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return kDays[month - 1] + (month == 2 && isLeap(year));
}

}  // namespace

IPE_Object IPE_Fs(const IPE_Arguments& arguments) {
    arguments.check("s|", "fs");
    std::string_view name = arguments.text(0);
    for (const IPE_FsCommand* table : {IPE_FsListing, IPE_FsOperations, IPE_FsSecurity, IPE_FsSystem}) {
        for (const IPE_FsCommand* row = table; row->name; ++row) {
            if (name != row->name) continue;
            arguments.check(row->spec, "fs");
            return row->run(arguments);
        }
    }
    XPK_Raise("RuntimeError", "Unknown fs command: $name").string("name", name).raise();
}

IPE_Object IPE_FsDate(const platform::FileTime& time) {
    std::tm local{};
    std::time_t seconds = time.seconds;
    if (!::localtime_r(&seconds, &local)) return IPE_FsNoDate();
    int64_t year = std::min<int64_t>(int64_t{local.tm_year} + 1900, kLastYear);
    return IPE_TupleOf({IPE_Int(year), IPE_Int(local.tm_mon + 1), IPE_Int(local.tm_mday),
                        IPE_Int(local.tm_hour), IPE_Int(local.tm_min), IPE_Int(local.tm_sec)});
}

IPE_Object IPE_FsNoDate() {
    IPE_Object zero = IPE_Int(0);
    return IPE_TupleOf({zero, zero, zero, zero, zero, zero});
}

bool IPE_FsTime(const IPE_Object& date, platform::FileTime& time) {
    const IPE_SequenceType* parts = date.tryAs<IPE_TupleType>();
    if (!parts) parts = date.tryAs<IPE_ListType>();
    if (!parts || parts->count() != 6) return false;
    int64_t part[6];
    for (int i = 0; i < 6; ++i) {
        if (!parts->at(i).is<IPE_IntType>()) return false;
        part[i] = parts->at(i)->__int__();
    }
    bool good = part[0] >= 1601 && part[0] <= 30827 && part[1] >= 1 && part[1] <= 12 && part[2] >= 1 &&
                part[2] <= daysOf(part[0], part[1]) && part[3] >= 0 && part[3] < 24 && part[4] >= 0 &&
                part[4] < 60 && part[5] >= 0 && part[5] < 60;
    if (!good) return false;
    std::tm local{};
    local.tm_year = static_cast<int>(part[0] - 1900);
    local.tm_mon = static_cast<int>(part[1] - 1);
    local.tm_mday = static_cast<int>(part[2]);
    local.tm_hour = static_cast<int>(part[3]);
    local.tm_min = static_cast<int>(part[4]);
    local.tm_sec = static_cast<int>(part[5]);
    local.tm_isdst = -1;
    time = {std::mktime(&local), 0};
    return true;
}
