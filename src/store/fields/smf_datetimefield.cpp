// Moments, and the handle that reads them out of two batches.
#include "store/fields/smf_datetimefield.h"

#include <algorithm>

#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_momentparts.h"

namespace {

// The values of one part from row `row`, counted from 1, on: those that are decoded already, at least one.
template <class Value>
std::span<const Value> decodedFrom(SMF_DecoderOf<Value>& part, int64_t row, size_t limit) {
    part.load(row);
    const SMF_Batch<Value>& batch = part.batch();
    auto skip = static_cast<size_t>(row - 1 - batch.first);
    return {batch.values + skip, std::min(limit, batch.count - skip)};
}

}  // namespace

SMF_DateTimeField::SMF_DateTimeField(std::shared_ptr<SMF_FieldMeta> meta, SMF_RecordData& record)
    : SMF_Field(std::move(meta), record) {}

void SMF_DateTimeField::loadRow(int64_t row) {
    auto& decoder = static_cast<SMF_DateTimeDecoder&>(*meta_->decoder);
    value_ = {decodedFrom(decoder.dates(), row, 1)[0], decodedFrom(decoder.times(), row, 1)[0]};
}

const SMF_DateTimeValue& SMF_DateTimeField::get() {
    if (isFixed()) return readFixed(value_, fixed_);
    load();
    return value_;
}

int64_t SMF_DateTimeField::as64() {
    const SMF_DateTimeValue& value = get();
    return SMF_TimeOfDateTime(value.date, value.time);
}

IPE_Object SMF_DateTimeField::asObject() {
    if (isFixed()) return fixedValue();
    const SMF_DateTimeValue& value = get();
    return IPE_String(SMF_DateText(value.date) + ' ' + SMF_TimeText(value.time));
}

SMF_Moment SMF_DateTimeField::asYMDHMS() {
    const auto& [date, time] = get();
    return {date.year, date.month, date.day, time.hour, time.minute, time.second};
}

void SMF_DateTimeField::assignText(std::string_view utf8) {
    auto two = [&](size_t at) { return SMF_DigitsAt(utf8, at, 2); };
    value_ = {SMF_MakeDate(SMF_DigitsAt(utf8, 0, 4), two(5), two(8)),
              SMF_MakeTime(two(11), two(14), two(17))};
}

void SMF_DateTimeField::assign64(int64_t value) {
    if (value == 0 || !SMF_LocalMoment(value, value_.date, value_.time)) clear();
}

void SMF_DateTimeField::assignObject(const IPE_Object& value) {
    if (value.is<IPE_StringType>()) return assignText(value.as<IPE_StringType>()->view());
    if (value.is<IPE_IntType>()) return assign64(value.as<IPE_IntType>()->value);
    if (value.is<IPE_NoneType>()) return clear();
    int64_t parts[6];
    SMF_TakeIntegers(value, parts, 6);
    value_ = {SMF_MakeDate(parts[0], parts[1], parts[2]), SMF_MakeTime(parts[3], parts[4], parts[5])};
}

// --- The handle.

void SMF_DateTime::attached() {
    decoder_ = static_cast<SMF_DateTimeDecoder*>(plainDecoder());
    dates_ = decoder_ ? &decoder_->dates().batch() : &NoDates;
    times_ = decoder_ ? &decoder_->times().batch() : &NoTimes;
}

SMF_DateTimeValue SMF_DateTime::getSlow() const {
    if (!decoder_ || !loadable()) return static_cast<SMF_DateTimeField&>(field()).get();
    int64_t row = data_->loadRow;
    return {decodedFrom(decoder_->dates(), row, 1)[0], decodedFrom(decoder_->times(), row, 1)[0]};
}

SMF_DateValue SMF_DateTime::dateSlow() const {
    if (!decoder_ || !loadable()) return static_cast<SMF_DateTimeField&>(field()).get().date;
    return decodedFrom(decoder_->dates(), data_->loadRow, 1)[0];
}

int64_t SMF_DateTime::time64() const {
    SMF_DateTimeValue value = get();
    return SMF_TimeOfDateTime(value.date, value.time);
}

void SMF_DateTime::set(const SMF_DateTimeValue& value) const {
    static_cast<SMF_DateTimeField&>(field()).set(value);
}

std::span<const SMF_DateValue> SMF_DateTime::dates(size_t limit) const {
    if (!decoder_ || !loadable()) return {};
    return decodedFrom(decoder_->dates(), data_->loadRow, limit);
}

std::span<const SMF_TimeValue> SMF_DateTime::times(size_t limit) const {
    if (!decoder_ || !loadable()) return {};
    return decodedFrom(decoder_->times(), data_->loadRow, limit);
}

namespace {
const SMF_FieldRegistration registered(SMF_TypeDateTime, SMF_MakeFieldOf<SMF_DateTimeField>);
}  // namespace
