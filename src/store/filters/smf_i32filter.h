// SMF_I32Filter: a 32-bit number compared with a number or another field, or looked up in ranges; the
// permission bits of a field named "mode".
//
//   Count in [(1, 9), (100, 0)]      a first number and how many more
//   mode has [ur, gr]                every one of these bits is set
//   mode is uw                       exactly these are
//
// On "mode" the words eq, ne, lt, gt, le and ge stand for the operators. An operator may follow the word and
// then counts.
#pragma once

#include <utility>
#include <vector>

#include "store/fields/smf_i32field.h"
#include "store/filters/smf_fieldfilter.h"

class SMF_I32Filter final : public SMF_FieldFilter {
  public:
    SMF_I32Filter(const SMF_FilterScope& scope, int32_t index);
    bool parse(IPE_TokenSource& tokens, std::string_view name, int depth) override;
    void evaluate(bool& result) override;
    size_t sift(uint8_t* keep, size_t limit) override;

  private:
    enum class Test : uint8_t { Number, Field, Ranges, HasBits, IsBits };
    void parseBits(IPE_TokenSource& tokens);
    void parseRanges(IPE_TokenSource& tokens);
    bool inRanges(int64_t value) const;

    SMF_I32 value_, other_;
    Test test_ = Test::Number;
    SMF_Comparison comparison_ = SMF_Comparison::Equal;
    int64_t number_ = 0;                               // or the bits
    std::vector<std::pair<int64_t, int64_t>> ranges_;  // first and last, ascending, apart
};
