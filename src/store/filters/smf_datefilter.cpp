// Dates, with and without a time: values come straight from the columns where there are any, else (a fixed or
// a declared field) through the value object.
#include "store/filters/smf_datefilter.h"

namespace {

SMF_DateTimeValue throughField(const SMF_FieldHandle& handle) {
    SMF_Moment moment = handle.field().asYMDHMS();
    return {{static_cast<int8_t>(moment.day), static_cast<int8_t>(moment.month),
             static_cast<int16_t>(moment.year)},
            {static_cast<int8_t>(moment.hour), static_cast<int8_t>(moment.minute),
             static_cast<int8_t>(moment.second)}};
}

int64_t timeOf(const SMF_Date& handle) {
    return handle.decoder() ? SMF_TimeOfDate(handle.get()) : handle.as64();
}
int64_t timeOf(const SMF_DateTime& handle) { return handle.decoder() ? handle.time64() : handle.as64(); }

}  // namespace

SMF_DateFilter::SMF_DateFilter(const SMF_FilterScope& scope, int32_t index)
    : SMF_MomentFilter(scope, index, 3) {
    value_.connect(scope.record, meta_->name);
}

void SMF_DateFilter::evaluate(bool& result) {
    if (test() == Test::Field) {
        result = byTime(timeOf(value_), timeOf(other_));
        return;
    }
    SMF_DateValue value = value_.decoder() ? value_.get() : throughField(value_).date;
    if (!needsTime()) {
        result = byDay(value);
        return;
    }
    if (!known_ || value != last_) {
        last_ = value;
        known_ = true;
        lastAnswer_ = test() == Test::Moment ? byTime(timeOf(value_), moment())
                                             : byParts({value.year, value.month, value.day, 0, 0, 0});
    }
    result = lastAnswer_;
}

SMF_DateTimeFilter::SMF_DateTimeFilter(const SMF_FilterScope& scope, int32_t index)
    : SMF_MomentFilter(scope, index, 6) {
    value_.connect(scope.record, meta_->name);
}

void SMF_DateTimeFilter::evaluate(bool& result) {
    if (test() == Test::Field) {
        result = byTime(timeOf(value_), timeOf(other_));
        return;
    }
    if (!needsTime()) {
        // Leaves the column of the times alone.
        result = byDay(value_.decoder() ? value_.date() : throughField(value_).date);
        return;
    }
    SMF_DateTimeValue value = value_.decoder() ? value_.get() : throughField(value_);
    if (!known_ || value != last_) {
        last_ = value;
        known_ = true;
        const auto& [date, time] = value;
        lastAnswer_ = test() == Test::Moment
                          ? byTime(timeOf(value_), moment())
                          : byParts({date.year, date.month, date.day, time.hour, time.minute, time.second});
    }
    result = lastAnswer_;
}
