// SMF_TimeFilter: time fields have no test.
#pragma once

#include "store/fields/smf_timefield.h"
#include "store/filters/smf_fieldfilter.h"

class SMF_TimeFilter final : public SMF_FieldFilter {
  public:
    SMF_TimeFilter(const SMF_FilterScope& scope, int32_t index);
    // DevelopmentError "Not implemented".
    bool parse(IPE_TokenSource& tokens, std::string_view name, int depth) override;
    void evaluate(bool& result) override;

  private:
    SMF_Time time_;
};
