// SMF_I64Filter: a 64-bit number compared with a number, which may have a unit, or with another field.
//
//   Size >= 5MB       Size ne Space       Size < 10
#pragma once

#include "store/fields/smf_i64field.h"
#include "store/filters/smf_fieldfilter.h"
#include "store/filters/smf_i64comparison.h"

class SMF_I64Filter final : public SMF_FieldFilter {
  public:
    SMF_I64Filter(const SMF_FilterScope& scope, int32_t index);
    bool parse(IPE_TokenSource& tokens, std::string_view name, int depth) override;
    void evaluate(bool& result) override;
    size_t sift(uint8_t* keep, size_t limit) override;

  private:
    SMF_I64 value_;
    SMF_I64Comparison comparison_;
};
