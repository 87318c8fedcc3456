// SMF_FlagFilter: which flags of a value are set, by their short names.
//
//   Attributes has [H, S]      all of these are set
//   Attributes is A            these are set and no other; also `=` and `==`
#pragma once

#include "store/fields/smf_flagfield.h"
#include "store/filters/smf_fieldfilter.h"

class SMF_FlagFilter final : public SMF_FieldFilter {
  public:
    SMF_FlagFilter(const SMF_FilterScope& scope, int32_t index);
    bool parse(IPE_TokenSource& tokens, std::string_view name, int depth) override;
    void evaluate(bool& result) override;
    size_t sift(uint8_t* keep, size_t limit) override;

  private:
    bool holds(const SMF_FlagValue& flags) const;
    SMF_Flag value_;
    SMF_FlagValue wanted_;
    bool exactly_ = false;
};
