// SMF_I64Comparison: an operator and its right side, a number that may have a unit or a 64-bit field. What a
// test compares with it is the test's own affair.
//
//   >= 5MB       ne Space       < 10
#pragma once

#include "store/fields/smf_i64field.h"
#include "store/filters/smf_fieldfilter.h"

class SMF_I64Comparison {
  public:
    // Reads it from the current token on. A field is one of `record`. Faults are syntax errors of the source.
    void parse(IPE_TokenSource& tokens, SMF_Record& record);
    // Whether it holds for `value`, against the record's current row.
    bool holds(int64_t value) const {
        return SMF_Compares(comparison_, value, other_.isConnected() ? other_.get() : number_);
    }
    // As SMF_FieldFilter::sift, of values that begin at the record's current row.
    size_t sift(std::span<const int64_t> values, uint8_t* keep) const {
        if (!other_.isConnected()) return SMF_SiftNumber(comparison_, values, number_, keep);
        return SMF_SiftPairs(comparison_, values, other_.span(values.size()), keep);
    }

  private:
    void parseNumber(IPE_TokenSource& tokens);

    SMF_I64 other_;
    SMF_Comparison comparison_ = SMF_Comparison::Equal;
    int64_t number_ = 0;
};
