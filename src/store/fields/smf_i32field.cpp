// 32-bit integers.
#include "store/fields/smf_i32field.h"

#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_string.h"

const int32_t& SMF_I32Field::get() {
    if (isFixed()) return fixed_ = static_cast<int32_t>(fixedValue()->__int__());
    load();
    return value_;
}

int64_t SMF_I32Field::as64() { return get(); }

IPE_Object SMF_I32Field::asObject() {
    if (isFixed()) return fixedValue();
    load();
    return IPE_Int(value_);
}

void SMF_I32Field::assignText(std::string_view utf8) {
    value_ = static_cast<int32_t>(EPA_String(utf8).toInt());
}

void SMF_I32Field::assignObject(const IPE_Object& value) {
    XPK_Assert(value.is<IPE_IntType>());
    value_ = static_cast<int32_t>(value.as<IPE_IntType>()->value);
}

namespace {
const SMF_FieldRegistration registered(SMF_TypeI32, SMF_MakeFieldOf<SMF_I32Field>);
}  // namespace
