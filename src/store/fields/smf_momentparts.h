// What the value classes of dates and times share: their text forms, and the numbers in what is assigned.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "runtime/ipe_object.h"
#include "store/smf_values.h"

// The number that the `count` characters from `at` on write. A character that is missing or no digit counts
// as 0.
int64_t SMF_DigitsAt(std::string_view text, size_t at, size_t count);

// The items of a list or tuple of exactly `count` integers; anything else is an assertion.
void SMF_TakeIntegers(const IPE_Object& value, int64_t* out, int32_t count);

// A part that its member cannot hold makes the whole value zero.
SMF_DateValue SMF_MakeDate(int64_t year, int64_t month, int64_t day);
SMF_TimeValue SMF_MakeTime(int64_t hour, int64_t minute, int64_t second);

std::string SMF_DateText(const SMF_DateValue& date);  // "YYYY-MM-DD"
std::string SMF_TimeText(const SMF_TimeValue& time);  // "HH:MM:SS"
