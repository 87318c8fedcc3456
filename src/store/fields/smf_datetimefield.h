// SMF_DateTimeField and its handle SMF_DateTime: a moment, kept as a date and a time.
#pragma once

#include <span>

#include "store/smf_fieldhandle.h"

struct SMF_DateTimeValue {
    SMF_DateValue date;
    SMF_TimeValue time;
    bool operator==(const SMF_DateTimeValue&) const = default;
};

class SMF_DateTimeField final : public SMF_Field {
  public:
    SMF_DateTimeField(std::shared_ptr<SMF_FieldMeta> meta, SMF_RecordData& record);
    // Local time when the year is from 1975 to 2030, else 0.
    int64_t as64() override;
    int32_t as32() override { return static_cast<int32_t>(as64()); }
    IPE_Object asObject() override;  // "YYYY-MM-DD HH:MM:SS"
    SMF_Moment asYMDHMS() override;
    SMF_MomentMask maskYMDHMS() override { return {true, true, true, true, true, true}; }
    // "YYYY-MM-DD HH:MM:SS", digits by position.
    void assignText(std::string_view utf8) override;
    void assign64(int64_t value) override;  // 0 clears, else local time
    // A text, an integer, or a list or tuple of six integers.
    void assignObject(const IPE_Object& value) override;
    int displayKind() const noexcept override { return 2; }
    int32_t typeNumber() const noexcept override { return SMF_TypeDateTime; }

    const SMF_DateTimeValue& get();
    const SMF_DateTimeValue& stored() const noexcept { return value_; }
    void set(const SMF_DateTimeValue& value) noexcept { value_ = value; }

  protected:
    void clear() override { value_ = {}; }
    void loadRow(int64_t row) override;
    SMF_DateTimeValue value_;
    SMF_DateTimeValue fixed_;  // what a fixed field shows
};

// Reads date and time out of the two parts' batches. A consumer that needs only one part touches only that
// column.
class SMF_DateTime : public SMF_FieldHandle {
  public:
    int32_t typeNumber() const noexcept override { return SMF_TypeDateTime; }
    SMF_DateTimeValue get() const {
        int64_t row = data_->loadRow - 1;
        if (dates_->contains(row) && times_->contains(row)) [[likely]]
            return {dates_->values[row - dates_->first], times_->values[row - times_->first]};
        return getSlow();
    }
    SMF_DateValue date() const {
        int64_t row = data_->loadRow - 1;
        return dates_->contains(row) ? dates_->values[row - dates_->first] : dateSlow();
    }
    // Seconds since 1970, as SMF_DateTimeField::as64.
    int64_t time64() const;
    void set(const SMF_DateTimeValue& value) const;
    // As SMF_HandleOf::span, of one part each.
    std::span<const SMF_DateValue> dates(size_t limit = SIZE_MAX) const;
    std::span<const SMF_TimeValue> times(size_t limit = SIZE_MAX) const;
    SMF_DateTimeDecoder* decoder() const noexcept { return decoder_; }

  private:
    void attached() override;
    SMF_DateTimeValue getSlow() const;
    SMF_DateValue dateSlow() const;

    static inline const SMF_Batch<SMF_DateValue> NoDates{};
    static inline const SMF_Batch<SMF_TimeValue> NoTimes{};
    SMF_DateTimeDecoder* decoder_ = nullptr;
    const SMF_Batch<SMF_DateValue>* dates_ = &NoDates;
    const SMF_Batch<SMF_TimeValue>* times_ = &NoTimes;
};
