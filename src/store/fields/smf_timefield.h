// SMF_TimeField and its handle SMF_Time: a time of day.
#pragma once

#include "store/smf_fieldhandle.h"

class SMF_TimeField final : public SMF_FieldOf<SMF_TimeValue, SMF_TimeDecoder> {
  public:
    using SMF_FieldOf::SMF_FieldOf;
    // A fixed field answers from the fixed value.
    const SMF_TimeValue& get();
    IPE_Object asObject() override;  // "HH:MM:SS"
    SMF_Moment asYMDHMS() override;  // hour, minute and second
    SMF_MomentMask maskYMDHMS() override { return {false, false, false, true, true, true}; }
    // NotImplementedError "TimeField::assignUTF8".
    void assignText(std::string_view utf8) override;
    // A list or tuple of three integers; None or 0 clears.
    void assignObject(const IPE_Object& value) override;
    int displayKind() const noexcept override { return 1; }
    int32_t typeNumber() const noexcept override { return SMF_TypeTime; }

  protected:
    void clear() override { value_ = {}; }
};

using SMF_Time = SMF_HandleOf<SMF_TypeTime, SMF_TimeValue, SMF_TimeField, SMF_TimeDecoder>;
