// Parts of moments.
#include "store/fields/smf_momentparts.h"

#include <cstdio>
#include <utility>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"

int64_t SMF_DigitsAt(std::string_view text, size_t at, size_t count) {
    int64_t value = 0;
    for (size_t i = at; i < at + count; ++i) {
        bool digit = i < text.size() && text[i] >= '0' && text[i] <= '9';
        value = value * 10 + (digit ? text[i] - '0' : 0);
    }
    return value;
}

void SMF_TakeIntegers(const IPE_Object& value, int64_t* out, int32_t count) {
    XPK_Assert(value.is<IPE_ListType>() || value.is<IPE_TupleType>());
    auto* items = static_cast<IPE_SequenceType*>(value.get());
    XPK_Assert(items->count() == count);
    for (int32_t i = 0; i < count; ++i) {
        const IPE_Object& item = items->at(i);
        XPK_Assert(item.is<IPE_IntType>());
        out[i] = item.as<IPE_IntType>()->value;
    }
}

SMF_DateValue SMF_MakeDate(int64_t year, int64_t month, int64_t day) {
    if (!std::in_range<int16_t>(year) || !std::in_range<int8_t>(month) || !std::in_range<int8_t>(day))
        return {};
    return {static_cast<int8_t>(day), static_cast<int8_t>(month), static_cast<int16_t>(year)};
}

SMF_TimeValue SMF_MakeTime(int64_t hour, int64_t minute, int64_t second) {
    if (!std::in_range<int8_t>(hour) || !std::in_range<int8_t>(minute) || !std::in_range<int8_t>(second))
        return {};
    return {static_cast<int8_t>(hour), static_cast<int8_t>(minute), static_cast<int8_t>(second)};
}

std::string SMF_DateText(const SMF_DateValue& date) {
    char text[24];
    int size = std::snprintf(text, sizeof text, "%04i-%02i-%02i", date.year, date.month, date.day);
    return {text, static_cast<size_t>(size)};
}

std::string SMF_TimeText(const SMF_TimeValue& time) {
    char text[24];
    int size = std::snprintf(text, sizeof text, "%02i:%02i:%02i", time.hour, time.minute, time.second);
    return {text, static_cast<size_t>(size)};
}
