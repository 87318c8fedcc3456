// Time fields have no test: a query that names one does not compile.
#include "store/filters/smf_timefilter.h"

#include "runtime/xpk_exception.h"

namespace {
[[noreturn]] void notImplemented() { XPK_Raise("DevelopmentError", "Not implemented").raise(); }
}  // namespace

SMF_TimeFilter::SMF_TimeFilter(const SMF_FilterScope& scope, int32_t index) : SMF_FieldFilter(scope, index) {
    time_.connect(scope.record, meta_->name);
}

bool SMF_TimeFilter::parse(IPE_TokenSource& tokens, std::string_view name, int depth) { notImplemented(); }
void SMF_TimeFilter::evaluate(bool& result) { notImplemented(); }
