// SMF_I32Field and its handle SMF_I32: signed 32-bit integers.
#pragma once

#include "store/smf_fieldhandle.h"

class SMF_I32Field final : public SMF_FieldOf<int32_t, SMF_I32Decoder> {
  public:
    using SMF_FieldOf::SMF_FieldOf;
    // A fixed field answers from the fixed value.
    int64_t as64() override;
    int32_t as32() override { return static_cast<int32_t>(as64()); }
    IPE_Object asObject() override;
    void assignText(std::string_view utf8) override;  // a decimal number
    void assign64(int64_t value) override { value_ = static_cast<int32_t>(value); }
    void assignObject(const IPE_Object& value) override;  // an integer, else an assertion
    int displayKind() const noexcept override { return 2; }
    int32_t typeNumber() const noexcept override { return SMF_TypeI32; }
    const int32_t& get();

  protected:
    void clear() override { value_ = meta_->defaultNumber; }
};

using SMF_I32 = SMF_HandleOf<SMF_TypeI32, int32_t, SMF_I32Field, SMF_I32Decoder>;
