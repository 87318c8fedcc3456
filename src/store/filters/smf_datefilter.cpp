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

// A date alone has no part below the day; only a moment is left.
bool SMF_DateFilter::judge(const SMF_DateValue& value) {
    if (!known_ || value != last_) {
        lastAnswer_ = test() == Test::Moment ? byTime(SMF_TimeOfDate(value), moment())
                                             : byParts({value.year, value.month, value.day, 0, 0, 0});
        last_ = value;
        known_ = true;
    }
    return lastAnswer_;
}

void SMF_DateFilter::evaluate(bool& result) {
    if (test() == Test::Field) {
        result = byTime(timeOf(value_), timeOf(other_));
        return;
    }
    SMF_DateValue value = value_.decoder() ? value_.get() : throughField(value_).date;
    result = needsTime() ? judge(value) : byDay(value);
}

size_t SMF_DateFilter::sift(uint8_t* keep, size_t limit) {
    if (test() == Test::Field) return 0;
    std::span<const SMF_DateValue> dates = value_.span(limit);
    if (!needsTime()) {
        siftDays(dates, keep);
    } else {
        for (size_t i = 0; i < dates.size(); ++i)
            if (keep[i]) keep[i] = judge(dates[i]);
    }
    return dates.size();
}

SMF_DateTimeFilter::SMF_DateTimeFilter(const SMF_FilterScope& scope, int32_t index)
    : SMF_MomentFilter(scope, index, 6) {
    value_.connect(scope.record, meta_->name);
}

bool SMF_DateTimeFilter::judge(const SMF_DateTimeValue& value) {
    if (!known_ || value != last_) {
        const auto& [date, time] = value;
        lastAnswer_ = test() == Test::Moment
                          ? byTime(SMF_TimeOfDateTime(date, time), moment())
                          : byParts({date.year, date.month, date.day, time.hour, time.minute, time.second});
        last_ = value;
        known_ = true;
    }
    return lastAnswer_;
}

void SMF_DateTimeFilter::evaluate(bool& result) {
    if (test() == Test::Field)
        result = byTime(timeOf(value_), timeOf(other_));
    else if (!needsTime())
        // Leaves the column of the times alone.
        result = byDay(value_.decoder() ? value_.date() : throughField(value_).date);
    else
        result = judge(value_.decoder() ? value_.get() : throughField(value_));
}

size_t SMF_DateTimeFilter::sift(uint8_t* keep, size_t limit) {
    if (test() == Test::Field) return 0;
    std::span<const SMF_DateValue> dates = value_.dates(limit);
    if (!needsTime()) {
        siftDays(dates, keep);
        return dates.size();
    }
    std::span<const SMF_TimeValue> times = value_.times(dates.size());
    for (size_t i = 0; i < times.size(); ++i)
        if (keep[i]) keep[i] = judge({dates[i], times[i]});
    return times.size();
}
