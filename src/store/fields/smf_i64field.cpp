// 64-bit integers.
#include "store/fields/smf_i64field.h"

#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_string.h"

const int64_t& SMF_I64Field::get() {
    if (isFixed()) return fixed_ = fixedValue()->__int__();
    load();
    return value_;
}

int64_t SMF_I64Field::as64() { return get(); }

IPE_Object SMF_I64Field::asObject() {
    if (isFixed()) return fixedValue();
    load();
    return IPE_Int(value_);
}

void SMF_I64Field::assignText(std::string_view utf8) { value_ = EPA_String(utf8).toInt(); }

void SMF_I64Field::assignObject(const IPE_Object& value) {
    XPK_Assert(value.is<IPE_IntType>());
    value_ = value.as<IPE_IntType>()->value;
}

namespace {
const SMF_FieldRegistration registered(SMF_TypeI64, SMF_MakeFieldOf<SMF_I64Field>);
}  // namespace
