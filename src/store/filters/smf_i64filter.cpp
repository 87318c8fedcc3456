// Comparisons of 64-bit numbers.
#include "store/filters/smf_i64filter.h"

SMF_I64Filter::SMF_I64Filter(const SMF_FilterScope& scope, int32_t index) : SMF_FieldFilter(scope, index) {
    value_.connect(scope.record, meta_->name);
}

bool SMF_I64Filter::parse(IPE_TokenSource& tokens, std::string_view name, int depth) {
    comparison_.parse(tokens, scope_.record);
    return true;
}

void SMF_I64Filter::evaluate(bool& result) { result = comparison_.holds(value_.get()); }

size_t SMF_I64Filter::sift(uint8_t* keep, size_t limit) { return comparison_.sift(value_.span(limit), keep); }
