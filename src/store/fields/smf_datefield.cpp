// Dates.
#include "store/fields/smf_datefield.h"

#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_momentparts.h"

const SMF_DateValue& SMF_DateField::get() {
    if (isFixed()) return readFixed(value_, fixed_);
    load();
    return value_;
}

int64_t SMF_DateField::as64() { return SMF_TimeOfDate(get()); }

IPE_Object SMF_DateField::asObject() { return isFixed() ? fixedValue() : IPE_String(SMF_DateText(get())); }

SMF_Moment SMF_DateField::asYMDHMS() {
    const SMF_DateValue& date = get();
    return {.year = date.year, .month = date.month, .day = date.day};
}

void SMF_DateField::assignText(std::string_view utf8) {
    value_ = SMF_MakeDate(SMF_DigitsAt(utf8, 0, 4), SMF_DigitsAt(utf8, 5, 2), SMF_DigitsAt(utf8, 8, 2));
}

void SMF_DateField::assign64(int64_t value) {
    SMF_TimeValue time;
    if (value == 0 || !SMF_LocalMoment(value, value_, time)) clear();
}

void SMF_DateField::assignObject(const IPE_Object& value) {
    if (value.is<IPE_StringType>()) return assignText(value.as<IPE_StringType>()->view());
    if (value.is<IPE_IntType>()) return assign64(value.as<IPE_IntType>()->value);
    XPK_Assert(value.is<IPE_NoneType>());
    clear();
}

namespace {
const SMF_FieldRegistration registered(SMF_TypeDate, SMF_MakeFieldOf<SMF_DateField>);
}  // namespace
