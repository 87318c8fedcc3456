// Times of day.
#include "store/fields/smf_timefield.h"

#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_momentparts.h"

const SMF_TimeValue& SMF_TimeField::get() {
    if (isFixed()) return readFixed(value_, fixed_);
    load();
    return value_;
}

IPE_Object SMF_TimeField::asObject() { return isFixed() ? fixedValue() : IPE_String(SMF_TimeText(get())); }

SMF_Moment SMF_TimeField::asYMDHMS() {
    const SMF_TimeValue& time = get();
    return {.hour = time.hour, .minute = time.minute, .second = time.second};
}

void SMF_TimeField::assignText(std::string_view) {
    XPK_Raise("NotImplementedError", "TimeField::assignUTF8").raise();
}

void SMF_TimeField::assignObject(const IPE_Object& value) {
    if (value.is<IPE_NoneType>()) return clear();
    if (value.is<IPE_IntType>()) {
        XPK_Assert(value.as<IPE_IntType>()->value == 0);
        return clear();
    }
    int64_t parts[3];
    SMF_TakeIntegers(value, parts, 3);
    value_ = SMF_MakeTime(parts[0], parts[1], parts[2]);
}

namespace {
const SMF_FieldRegistration registered(SMF_TypeTime, SMF_MakeFieldOf<SMF_TimeField>);
}  // namespace
