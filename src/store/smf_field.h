// SMF_Field: the value object of one field in one record, and SMF_RecordData, which holds them all.
//
// On a reader a value object asks the field's decoder for the record's current row each time it is read; on a
// writer it holds what was assigned until it is stored. A field of Transform `Fixed` answers every read from
// the fixed value. Value objects belong to one thread, like the record.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/ipe_object.h"
#include "store/smf_fieldmeta.h"
#include "store/smf_values.h"

class SMF_Field;
struct SMF_RecordMeta;

// Stays at its place for the life of the record, so that handles may point to it; a rebuild replaces the
// fields.
struct SMF_RecordData {
    SMF_RecordData();
    ~SMF_RecordData();
    // Value object `index`; Runtime "Field index not in valid range".
    SMF_Field& field(int64_t index) const;

    std::shared_ptr<SMF_RecordMeta> meta;
    std::vector<std::unique_ptr<SMF_Field>> fields;
    int64_t row = 0;      // the current row from 1; 0 before the first
    int64_t loadRow = 0;  // the row that values are read from; 0 behind the last row, where values stay reset
};

// The six parts of a moment, and which of them a field has.
struct SMF_Moment {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};
struct SMF_MomentMask {
    bool year = false, month = false, day = false, hour = false, minute = false, second = false;
};

class SMF_Field {
  public:
    virtual ~SMF_Field();
    SMF_Field(const SMF_Field&) = delete;
    SMF_Field& operator=(const SMF_Field&) = delete;

    // --- Reading. Each call loads first.
    virtual int64_t as64() { return 0; }
    virtual int32_t as32() { return 0; }
    virtual IPE_Object asObject() = 0;
    // SystemError "Virtual Method SMF_Field::asYMDHMS() Called" for a type without date or time.
    virtual SMF_Moment asYMDHMS();
    virtual SMF_MomentMask maskYMDHMS();
    // The text form of the value, for people.
    virtual std::string asText();

    // --- Writing.
    virtual void assignText(std::string_view utf8) = 0;
    virtual void assign64(int64_t value) {}  // ignored by types without a number
    virtual void assignObject(const IPE_Object& value) = 0;
    // The value of a field where none is stored: the type's own, then the tag `IPEDefault`.
    void reset();

    // 0 texts, 1 Time and Flag, 2 dates and numbers.
    virtual int displayKind() const noexcept = 0;
    virtual int32_t typeNumber() const noexcept = 0;

    const SMF_FieldMeta& meta() const noexcept { return *meta_; }
    // Brings the value of the record's current row here; nothing without a decoder or before the first row.
    void load() {
        if (meta_->decoder && record_.loadRow > 0) loadRow(record_.loadRow);
    }

    SMF_Field(std::shared_ptr<SMF_FieldMeta> meta, SMF_RecordData& record);

  protected:
    virtual void clear() = 0;
    // load() of a row: calls the decoder, then takes the value out of its batch.
    virtual void loadRow(int64_t row) = 0;
    bool isFixed() const noexcept { return meta_->isFixed(); }
    // The fixed value, brought into `shown` by way of assignObject. `own`, which that overwrites, stays as it
    // was: it is what a writer stores.
    template <class Value>
    const Value& readFixed(Value& own, Value& shown) {
        Value kept = own;
        try {
            assignObject(fixedValue());
        } catch (...) {
            own = std::move(kept);
            throw;
        }
        shown = std::exchange(own, std::move(kept));
        return shown;
    }
    const IPE_Object& fixedValue() const noexcept;  // never null
    const std::string& fileName() const noexcept;

    std::shared_ptr<SMF_FieldMeta> meta_;
    SMF_RecordData& record_;
};

// A value object whose value is a plain structure that a decoder of class `Decoder` makes.
template <class Value, class Decoder>
class SMF_FieldOf : public SMF_Field {
  public:
    using SMF_Field::SMF_Field;
    // The value, loaded; and as it stands, for encoders.
    const Value& get() {
        load();
        return value_;
    }
    const Value& stored() const noexcept { return value_; }
    void set(const Value& value) noexcept { value_ = value; }

  protected:
    void loadRow(int64_t row) override {
        auto& decoder = static_cast<Decoder&>(*meta_->decoder);
        if (!decoder.batch().contains(row - 1)) decoder.load(row);
        value_ = decoder.batch().values[row - 1 - decoder.batch().first];
    }
    Value value_{};
    Value fixed_{};  // what a fixed field shows
};

// The value object of a field, by its type. A type without a class: Runtime "Field index out of range".
std::unique_ptr<SMF_Field> SMF_MakeField(std::shared_ptr<SMF_FieldMeta> meta, SMF_RecordData& record);
// For the sources of the value classes: one each.
using SMF_FieldFactory = std::unique_ptr<SMF_Field> (*)(std::shared_ptr<SMF_FieldMeta>, SMF_RecordData&);
struct SMF_FieldRegistration {
    SMF_FieldRegistration(int32_t type, SMF_FieldFactory factory);
};
template <class Field>
std::unique_ptr<SMF_Field> SMF_MakeFieldOf(std::shared_ptr<SMF_FieldMeta> meta, SMF_RecordData& record) {
    return std::make_unique<Field>(std::move(meta), record);
}
