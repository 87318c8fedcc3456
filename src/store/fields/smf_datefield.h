// SMF_DateField and its handle SMF_Date: a day.
#pragma once

#include "store/smf_fieldhandle.h"

class SMF_DateField final : public SMF_FieldOf<SMF_DateValue, SMF_DateDecoder> {
  public:
    using SMF_FieldOf::SMF_FieldOf;
    // A fixed field answers from the fixed value.
    const SMF_DateValue& get();
    // Local midnight when the year is from 1970 to 2030, else 0.
    int64_t as64() override;
    int32_t as32() override { return static_cast<int32_t>(as64()); }
    IPE_Object asObject() override;  // "YYYY-MM-DD"
    SMF_Moment asYMDHMS() override;
    SMF_MomentMask maskYMDHMS() override { return {true, true, true, true, true, true}; }
    // "YYYY-MM-DD", digits taken by position.
    void assignText(std::string_view utf8) override;
    void assign64(int64_t value) override;  // 0 clears, else local time
    void assignObject(const IPE_Object& value) override;
    int displayKind() const noexcept override { return 2; }
    int32_t typeNumber() const noexcept override { return SMF_TypeDate; }

  protected:
    void clear() override { value_ = {}; }
};

using SMF_Date = SMF_HandleOf<SMF_TypeDate, SMF_DateValue, SMF_DateField, SMF_DateDecoder>;
