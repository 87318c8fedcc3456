// Floats: doubles, their text form, and conversions that no value can break.
//
// The text form has 17 digits after the point and is written by std::to_chars, which knows no locale and has
// no limit of length: a large magnitude keeps all its digits, and infinities and not-a-number read "inf",
// "-inf" and "nan". No form ever holds an exponent.
#include <charconv>
#include <cmath>

#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_dataoutput.h"

const char IPE_FloatType::TypeName[] = "FloatType";

namespace {

double floatOf(const IPE_Object& other) {
    if (other.is<IPE_FloatType>()) return other.as<IPE_FloatType>()->value;
    return other.isNull() ? 0.0 : other->__float__();
}

// Cut towards zero; beyond the range the nearest bound, not-a-number 0.
int64_t cut(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 9223372036854775808.0) return INT64_MAX;
    if (value < -9223372036854775808.0) return INT64_MIN;
    return static_cast<int64_t>(value);
}

}  // namespace

IPE_Object IPE_FloatType::__add__(const IPE_Object& other) { return IPE_Float(value + floatOf(other)); }
IPE_Object IPE_FloatType::__sub__(const IPE_Object& other) { return IPE_Float(value - floatOf(other)); }
IPE_Object IPE_FloatType::__mul__(const IPE_Object& other) { return IPE_Float(value * floatOf(other)); }

IPE_Object IPE_FloatType::__div__(const IPE_Object& other) {
    double divisor = floatOf(other);
    if (divisor == 0.0) XPK_Raise("NumericError", "Divide by Zero").raise();
    return IPE_Float(value / divisor);
}

int IPE_FloatType::__cmp__(const IPE_Object& other) {
    double right;
    if (other.is<IPE_FloatType>())
        right = other.as<IPE_FloatType>()->value;
    else if (other.is<IPE_IntType>())
        right = static_cast<double>(other.as<IPE_IntType>()->value);
    else
        return 1;
    if (value == right) return 0;
    return right < value ? 1 : -1;
}

uint32_t IPE_FloatType::__hash__() {
    auto whole = static_cast<uint32_t>(cut(value));
    auto fraction = static_cast<uint32_t>(cut((value - static_cast<double>(whole)) * 10000000.0));
    return whole + fraction;
}

int64_t IPE_FloatType::__int__() { return cut(value); }

std::string IPE_FloatType::format(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    char buffer[352];  // 309 digits, sign, point, 17 digits
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 17);
    XPK_Assert(error == std::errc());
    return std::string(buffer, end);
}

void IPE_FloatType::__str__(IPE_PrintContext& context, IPE_StackList&) { context.out.append(format(value)); }
void IPE_FloatType::__repr__(IPE_PrintContext& context, IPE_StackList&) { context.out.append(format(value)); }

IPE_Object IPE_FloatType::__getname__() { return IPE_Object(IPE_StringType::intern(TypeName)); }

void IPE_FloatType::save(EPA_DataOutput& out) {
    out.writeByte(8);
    out.writeText(EPA_String(format(value)));
}
