// SMF_DateFilter and SMF_DateTimeFilter: the tests of smf_momentfilter.h on a date, and on a date with a
// time.
//
// Neighbouring rows often hold the same value; the last one and its answer are kept.
#pragma once

#include "store/fields/smf_datefield.h"
#include "store/fields/smf_datetimefield.h"
#include "store/filters/smf_momentfilter.h"

class SMF_DateFilter final : public SMF_MomentFilter {
  public:
    SMF_DateFilter(const SMF_FilterScope& scope, int32_t index);
    void evaluate(bool& result) override;
    size_t sift(uint8_t* keep, size_t limit) override;

  private:
    void connectField(IPE_TokenSource& tokens) override { connectOther(other_, tokens); }
    bool judge(const SMF_DateValue& value);
    SMF_Date value_, other_;
    SMF_DateValue last_;
    bool known_ = false, lastAnswer_ = false;
};

class SMF_DateTimeFilter final : public SMF_MomentFilter {
  public:
    SMF_DateTimeFilter(const SMF_FilterScope& scope, int32_t index);
    void evaluate(bool& result) override;
    size_t sift(uint8_t* keep, size_t limit) override;

  private:
    void connectField(IPE_TokenSource& tokens) override { connectOther(other_, tokens); }
    bool judge(const SMF_DateTimeValue& value);
    SMF_DateTime value_, other_;
    SMF_DateTimeValue last_;
    bool known_ = false, lastAnswer_ = false;
};
