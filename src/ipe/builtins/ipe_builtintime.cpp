// Built-in functions on time. A time value is a count of seconds since 1970; 0 means no time.
//
// Broken-down fields are local time, by the C library. `weekday` asks nobody: it counts by Zeller's
// congruence in the Gregorian calendar, for any year, and carries months beyond the year into it.
#include <cerrno>
#include <ctime>

#include "ipe/builtins/ipe_builtinsupport.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_timeouttype.h"
#include "platform/pf_process.h"

namespace {

using Arguments = const IPE_Arguments&;

tm localFields(int64_t seconds) {
    tm fields{};
    time_t value = seconds;
    errno = 0;
    if (!localtime_r(&value, &fields)) XPK_ThrowSystemError("localtime", errno ? errno : EOVERFLOW);
    return fields;
}

IPE_Object builtinMaketime(Arguments a) { return IPE_Int(IPE_TimeOf(a[0])); }

IPE_Object builtinLocaltime(Arguments a) {
    constexpr int64_t Latest = 32535244798;
    int64_t seconds = a.size() > 0 ? a.integer(0) : time(nullptr);
    if (seconds > Latest)
        XPK_Raise("RuntimeError", "The value passed to localtime exceeds the maximum allowed!").raise();
    if (seconds <= 0) {
        IPE_Object zero = IPE_Int(0);
        return IPE_TupleOf({zero, zero, zero, zero, zero, zero});
    }
    tm fields = localFields(seconds);
    return IPE_TupleOf({IPE_Int(fields.tm_year + 1900), IPE_Int(fields.tm_mon + 1), IPE_Int(fields.tm_mday),
                        IPE_Int(fields.tm_hour), IPE_Int(fields.tm_min), IPE_Int(fields.tm_sec)});
}

IPE_Object builtinStrftime(Arguments a) {
    int64_t seconds = IPE_TimeOf(a[0]);
    if (seconds == 0) return IPE_String("");
    tm fields = localFields(seconds);
    std::string format(a.size() > 1 ? a.text(1) : "%Y-%m-%d %H:%M:%S");
    // A text that does not fit leaves the buffer's content undefined and gives 0, so it comes out empty.
    char text[128];
    size_t length = strftime(text, sizeof text, format.c_str(), &fields);
    return IPE_String({text, length});
}

int64_t floorDivide(int64_t value, int64_t by) { return value / by - (value % by < 0); }

// 0 is Sunday.
int64_t zeller(int64_t year, int64_t month, int64_t day) {
    // The calendar repeats after 400 years, which are whole weeks; this keeps every sum small.
    int64_t carried = floorDivide(month - 1, 12);
    month -= carried * 12;
    int64_t y = ((year % 400 + carried % 400) % 400 + 400) % 400 + 400;
    if (month < 3) {
        month += 12;
        --y;
    }
    int64_t weekday =
        (day % 7 + (13 * (month + 1)) / 5 + y + y / 4 - y / 100 + y / 400) % 7;  // 0 is Saturday
    return (weekday + 7 + 6) % 7;
}

IPE_Object builtinWeekday(Arguments a) {
    if (a.size() == 0) return IPE_Int(localFields(time(nullptr)).tm_wday);
    if (a.size() == 2)
        XPK_Raise("TypeError", "$name requires $requires arguments, $given given")
            .string("name", "weekday")
            .number("requires", 3)
            .number("given", 2)
            .raise();
    int64_t parts[3];
    for (int i = 0; i < 3; ++i) {
        IPE_Object part;
        if (a.size() > 1)
            part = a[i];
        else if (a[0].is<IPE_ListType>())
            part = IPE_List(a[0])[i];
        else
            part = IPE_Tuple(a[0])[i];
        parts[i] = part->__int__();
    }
    constexpr int64_t Bound = int64_t(1) << 32;
    for (int64_t part : parts)
        if (part < -Bound || part > Bound)
            XPK_Raise("ValueError", "$value is not part of a date").number("value", part).raise();
    return IPE_Int(zeller(parts[0], parts[1], parts[2]));
}

IPE_Object builtinTimer(Arguments a) {
    int64_t now = platform::highResolutionCounter();
    if (a.size() == 0) return IPE_Int(now);
    auto elapsed = static_cast<double>(now) - static_cast<double>(a.integer(0));
    if (int64_t exact; !__builtin_sub_overflow(now, a.integer(0), &exact))
        elapsed = static_cast<double>(exact);
    return IPE_Float(elapsed / static_cast<double>(platform::kHighResolutionFrequency));
}

IPE_Object builtinTimeout(Arguments) { return IPE_New<IPE_TimeoutType>(); }

const IPE_Builtin Rows[] = {
    {"maketime", "o", builtinMaketime},   {"localtime", "|i", builtinLocaltime},
    {"strftime", "o|s", builtinStrftime}, {"weekday", "|oii", builtinWeekday},
    {"timer", "|i", builtinTimer},        {"timeout", "", builtinTimeout},
};
const IPE_BuiltinTable registered(Rows);

}  // namespace
