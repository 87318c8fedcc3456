// SMF_I64Field and its handle SMF_I64: signed 64-bit integers.
#pragma once

#include "store/smf_fieldhandle.h"

class SMF_I64Field final : public SMF_FieldOf<int64_t, SMF_I64Decoder> {
  public:
    using SMF_FieldOf::SMF_FieldOf;
    // A fixed field answers from the fixed value.
    int64_t as64() override;
    int32_t as32() override { return static_cast<int32_t>(as64()); }
    IPE_Object asObject() override;
    void assignText(std::string_view utf8) override;  // a decimal number
    void assign64(int64_t value) override { value_ = value; }
    void assignObject(const IPE_Object& value) override;  // an integer, else an assertion
    int displayKind() const noexcept override { return 2; }
    int32_t typeNumber() const noexcept override { return SMF_TypeI64; }
    const int64_t& get();

  protected:
    void clear() override { value_ = 0; }
};

using SMF_I64 = SMF_HandleOf<SMF_TypeI64, int64_t, SMF_I64Field, SMF_I64Decoder>;
