// Numbers and singletons: IPE_IntType, IPE_FloatType, None, True, False. Immutable, shared between threads
// freely.
#pragma once

#include "ipe/object/ipe_type.h"

// The blocks of numbers. The primary thread, which the pools do not serve, keeps the last few dead ones.
inline constexpr size_t IPE_NumberSize = 32;
inline void* IPE_TakeNumber() {
    XPK_ThreadState* state = XPK_CurrentThread();
    if (!state || !state->spareNumbers) return XPK_Allocate(IPE_NumberSize);
    void* block = state->spareNumbers;
    state->spareNumbers = *static_cast<void**>(block);
    --state->spareNumberCount;
    return block;
}
inline void IPE_GiveNumber(void* block) noexcept {
#ifndef QUILL_SANITIZED
    constexpr int Kept = 512;
    XPK_ThreadState* state = XPK_CurrentThread();
    if (state && state->primary && state->spareNumberCount < Kept) {
        *static_cast<void**>(block) = state->spareNumbers;
        state->spareNumbers = block;
        ++state->spareNumberCount;
        return;
    }
#endif
    XPK_Free(block);
}

// A signed 64-bit integer with checked arithmetic. The right operand of each operation is its __int__; null
// counts as 0, a float is cut towards zero. Overflow raises SafeIntArithmeticOverflow, a zero divisor
// SafeIntDivideByZero
// (`%`: NumericError "Divide by Zero").
class IPE_IntType final : public IPE_Type {
  public:
    static const char TypeName[];
    explicit IPE_IntType(int64_t value) : IPE_Type(TypeName), value(value) {}
    const int64_t value;
    static void* operator new(size_t) { return IPE_TakeNumber(); }
    static void operator delete(void* block) noexcept { IPE_GiveNumber(block); }

    IPE_Object __add__(const IPE_Object& other) override;
    IPE_Object __sub__(const IPE_Object& other) override;
    IPE_Object __mul__(const IPE_Object& other) override;
    IPE_Object __div__(const IPE_Object& other) override;
    IPE_Object __format__(const IPE_Object& other) override;
    int __cmp__(const IPE_Object& other) override;
    uint32_t __hash__() override;
    IPE_Object __copy__() override { return IPE_Object(this); }
    bool __nonzero__() override { return value != 0; }
    double __float__() override { return static_cast<double>(value); }
    int64_t __int__() override { return value; }
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    IPE_Object __getname__() override;
    void save(EPA_DataOutput& out) override;
};

class IPE_FloatType final : public IPE_Type {
  public:
    static const char TypeName[];
    explicit IPE_FloatType(double value) : IPE_Type(TypeName), value(value) {}
    const double value;
    static void* operator new(size_t) { return IPE_TakeNumber(); }
    static void operator delete(void* block) noexcept { IPE_GiveNumber(block); }

    IPE_Object __add__(const IPE_Object& other) override;
    IPE_Object __sub__(const IPE_Object& other) override;
    IPE_Object __mul__(const IPE_Object& other) override;
    IPE_Object __div__(const IPE_Object& other) override;
    int __cmp__(const IPE_Object& other) override;
    uint32_t __hash__() override;
    IPE_Object __copy__() override { return IPE_Object(this); }
    bool __nonzero__() override { return value != 0.0; }
    double __float__() override { return value; }
    int64_t __int__()
        override;  // cut towards zero; out of range and not-a-number give the nearest bound and 0
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    IPE_Object __getname__() override;
    void save(EPA_DataOutput& out) override;
    // The text form, "%.17f" with its rules.
    static std::string format(double value);
};

// None, True and False: one object each for the life of the process.
class IPE_NoneType final : public IPE_Type {
  public:
    static const char TypeName[];
    IPE_NoneType() : IPE_Type(TypeName) {}
    int __cmp__(const IPE_Object& other) override;
    uint32_t __hash__() override { return 0; }
    IPE_Object __copy__() override { return IPE_Object(this); }
    bool __nonzero__() override { return false; }
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    IPE_Object __getname__() override;
    void save(EPA_DataOutput& out) override;
};

class IPE_BoolType : public IPE_Type {
  public:
    IPE_BoolType(const char* typeName, bool value) : IPE_Type(typeName), value(value) {}
    const bool value;
    int __cmp__(const IPE_Object& other) override;
    uint32_t __hash__() override { return 0; }
    IPE_Object __copy__() override { return IPE_Object(this); }
    bool __nonzero__() override { return value; }
    int64_t __int__() override { return value; }
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    IPE_Object __getname__() override;
    void save(EPA_DataOutput& out) override;
};
class IPE_TrueType final : public IPE_BoolType {
  public:
    static const char TypeName[];
    IPE_TrueType() : IPE_BoolType(TypeName, true) {}
};
class IPE_FalseType final : public IPE_BoolType {
  public:
    static const char TypeName[];
    IPE_FalseType() : IPE_BoolType(TypeName, false) {}
};

static_assert(sizeof(IPE_IntType) <= IPE_NumberSize && sizeof(IPE_FloatType) <= IPE_NumberSize);

namespace ipe_detail {
extern IPE_Object smallInts[201];  // -100 to 100
extern IPE_Object none, trueValue, falseValue;
extern EPA_Counted* tombstone;  // the deleted-entry marker of dictionaries
}  // namespace ipe_detail

// Makes the singletons and the table of small integers, once per process; the values are immortal. Called by
// the start of the interpreter's component and, so that native tests need no lifecycle, by a static
// initialiser.
void IPE_InitSingletons();

inline const IPE_Object& IPE_None() noexcept { return ipe_detail::none; }
inline const IPE_Object& IPE_True() noexcept { return ipe_detail::trueValue; }
inline const IPE_Object& IPE_False() noexcept { return ipe_detail::falseValue; }
inline const IPE_Object& IPE_Bool(bool value) noexcept { return value ? IPE_True() : IPE_False(); }
// Values from -99 to 99 come from the table; others are new objects.
inline IPE_Object IPE_Int(int64_t value) {
    if (value >= -99 && value <= 99) return ipe_detail::smallInts[value + 100];
    return IPE_New<IPE_IntType>(value);
}
inline IPE_Object IPE_Float(double value) { return IPE_New<IPE_FloatType>(value); }
