// Numbers, dates and times in the conventions of the calling thread's locale: the one that `_system` set,
// else the user's default. UTF-8. A refusal of the platform raises the platform error under the call's name:
// "GetNumberFormat", "GetCurrencyFormat", or "GetDateFormat" for dates and times.
#pragma once

#include <cstdint>
#include <string>

std::string IPE_LocaleInteger(int64_t value);  // grouped, cut at the decimal separator
std::string IPE_LocaleNumber(double value);
std::string IPE_LocaleCurrency(double value);
// Seconds since 1970 as local date or time; empty for 0 and for moments that have no local time.
std::string IPE_LocaleDate(int64_t moment, bool longForm);
std::string IPE_LocaleTime(int64_t moment);
