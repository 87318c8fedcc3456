// Integers and the constants None, True and False; the floats have a source of their own.
//
// The common case of every operation, two integers, is told by one pointer compare and runs on the compiler's
// checked arithmetic. Results from -99 to 99 come from a table and allocate nothing. All these objects are
// immutable; those of the table and the constants are immortal, so sharing them costs no count.
#include "ipe/values/ipe_numbers.h"

#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_dataoutput.h"

const char IPE_IntType::TypeName[] = "IntType";
const char IPE_NoneType::TypeName[] = "NoneType";
const char IPE_TrueType::TypeName[] = "TrueType";
const char IPE_FalseType::TypeName[] = "FalseType";

namespace ipe_detail {
IPE_Object smallInts[201];
IPE_Object none, trueValue, falseValue;
EPA_Counted* tombstone;
}  // namespace ipe_detail

namespace {

template <class T, class... Args>
IPE_Object immortal(Args... args) {
    IPE_Object object = IPE_New<T>(args...);
    object.counted()->makeImmortal();
    return object;
}

// Native tests and static objects of other sources use the constants before any component starts.
const bool made = (IPE_InitSingletons(), true);

int64_t intOf(const IPE_Object& other) {
    if (other.is<IPE_IntType>()) [[likely]]
        return other.as<IPE_IntType>()->value;
    return other.isNull() ? 0 : other->__int__();
}

// Arithmetic faults are bare names: their source and message are empty.
[[noreturn]] void raiseBare(const char* name) { throw XPK_Exception("", 0, name, "", ""); }

int order(int64_t a, int64_t b) { return a < b ? -1 : a > b; }

}  // namespace

void IPE_InitSingletons() {
    if (ipe_detail::none) return;
    ipe_detail::none = immortal<IPE_NoneType>();
    ipe_detail::trueValue = immortal<IPE_TrueType>();
    ipe_detail::falseValue = immortal<IPE_FalseType>();
    for (int i = 0; i <= 200; ++i) ipe_detail::smallInts[i] = immortal<IPE_IntType>(int64_t{i} - 100);
    ipe_detail::tombstone = immortal<IPE_Type>(static_cast<const char*>(nullptr)).counted();
    static_cast<void>(made);
}

// --- IPE_IntType

IPE_Object IPE_IntType::__add__(const IPE_Object& other) {
    int64_t result;
    if (__builtin_add_overflow(value, intOf(other), &result)) raiseBare("SafeIntArithmeticOverflow");
    return IPE_Int(result);
}

IPE_Object IPE_IntType::__sub__(const IPE_Object& other) {
    int64_t result;
    if (__builtin_sub_overflow(value, intOf(other), &result)) raiseBare("SafeIntArithmeticOverflow");
    return IPE_Int(result);
}

IPE_Object IPE_IntType::__mul__(const IPE_Object& other) {
    int64_t result;
    if (__builtin_mul_overflow(value, intOf(other), &result)) raiseBare("SafeIntArithmeticOverflow");
    return IPE_Int(result);
}

IPE_Object IPE_IntType::__div__(const IPE_Object& other) {
    int64_t divisor = intOf(other);
    if (divisor == 0) raiseBare("SafeIntDivideByZero");
    if (divisor == -1 && value == INT64_MIN) raiseBare("SafeIntArithmeticOverflow");
    return IPE_Int(value / divisor);
}

IPE_Object IPE_IntType::__format__(const IPE_Object& other) {
    int64_t divisor = intOf(other);
    if (divisor == 0) XPK_Raise("NumericError", "Divide by Zero").raise();
    return IPE_Int(divisor == -1 ? 0 : value % divisor);
}

int IPE_IntType::__cmp__(const IPE_Object& other) {
    if (other.is<IPE_IntType>()) [[likely]]
        return order(value, other.as<IPE_IntType>()->value);
    if (other.is<IPE_FloatType>()) return order(value, other->__int__());
    return 1;
}

// The two 32-bit halves, low one first, through the mixing steps of MurmurHash2 (Austin Appleby, public
// domain).
uint32_t IPE_IntType::__hash__() {
    constexpr uint32_t m = 0x5BD1E995;
    uint32_t h = 0x9E3779B9;
    auto bits = static_cast<uint64_t>(value);
    for (uint32_t word : {static_cast<uint32_t>(bits), static_cast<uint32_t>(bits >> 32)}) {
        uint32_t k = word * m;
        k ^= k >> 24;
        k *= m;
        h = (h * m) ^ k;
    }
    h ^= h >> 13;
    h *= m;
    h ^= h >> 15;
    return h;
}

void IPE_IntType::__str__(IPE_PrintContext& context, IPE_StackList&) { context.out.appendNumber(value); }

void IPE_IntType::__repr__(IPE_PrintContext& context, IPE_StackList&) {
    context.out.appendNumber(value);
    if (!context.json && (value >= 2147483648 || value <= -2147483648)) context.out.append('L');
}

IPE_Object IPE_IntType::__getname__() { return IPE_Object(IPE_StringType::intern(TypeName)); }

void IPE_IntType::save(EPA_DataOutput& out) {
    out.writeByte(7);
    out.writeInt64(value);
}

// --- None

int IPE_NoneType::__cmp__(const IPE_Object& other) { return other.is<IPE_NoneType>() ? 0 : 1; }

void IPE_NoneType::__str__(IPE_PrintContext& context, IPE_StackList&) {
    context.out.append(context.json ? "null" : "None");
}

void IPE_NoneType::__repr__(IPE_PrintContext& context, IPE_StackList& stack) { __str__(context, stack); }

IPE_Object IPE_NoneType::__getname__() { return IPE_Object(IPE_StringType::intern(TypeName)); }

void IPE_NoneType::save(EPA_DataOutput& out) { out.writeByte(9); }

// --- True and False

int IPE_BoolType::__cmp__(const IPE_Object& other) {
    if (other.is<IPE_IntType>()) return (other.as<IPE_IntType>()->value != 0) == value ? 0 : 1;
    return other.typeName() == typeName() ? 0 : 1;
}

void IPE_BoolType::__str__(IPE_PrintContext& context, IPE_StackList&) {
    if (context.booleansAsIntegers)
        context.out.append(value ? '1' : '0');
    else if (context.json)
        context.out.append(value ? "true" : "false");
    else
        context.out.append(value ? "True" : "False");
}

void IPE_BoolType::__repr__(IPE_PrintContext& context, IPE_StackList& stack) { __str__(context, stack); }

IPE_Object IPE_BoolType::__getname__() { return IPE_Object(IPE_StringType::intern(typeName())); }

void IPE_BoolType::save(EPA_DataOutput& out) { out.writeByte(value ? 10 : 11); }
