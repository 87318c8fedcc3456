// SMF_FieldHandle: the small typed reference by which native code reads or writes a field.
//
//   SMF_I64 size;
//   size.connect(table, "Size");
//   for (table.top(), table.next(); table.position() <= table.rows(); table.next()) sum += size.get();
//
// A handle reads straight out of the decoder's batch; only the first read of a batch makes a call. span()
// gives the rest of the batch as an array, for loops that take many rows at once. A handle must not outlive
// its record. It belongs to the record's thread. Reading an unconnected handle raises Runtime "Field is not
// connected to a table".
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "store/smf_field.h"
#include "store/smf_fielddecoder.h"
#include "store/smf_record.h"

class SMF_FieldHandle {
  public:
    SMF_FieldHandle();
    virtual ~SMF_FieldHandle() = default;

    // The field type that this handle takes; SMF_TypeGeneric for any.
    virtual int32_t typeNumber() const noexcept { return SMF_TypeGeneric; }
    // On a writer: declares a field of this name and type with the one tag `Format`; a generic handle raises
    // "Cannot use generic fields to create a table". On a reader: finds the field; when there is none the
    // handle stays unconnected. A field of another type raises "Incorrect field type, expecting $expecting,
    // actual $actual".
    void connect(SMF_Record& record, std::string_view name, std::string_view format = {});
    void disconnect();
    bool isConnected() const noexcept { return meta_ != nullptr; }

    int32_t index() const noexcept { return index_; }
    const SMF_FieldMeta& meta() const;
    SMF_Field& field() const;

    // The row that reads take their value from, from 1; 0 when there is none.
    int64_t row() const noexcept { return data_->loadRow; }

    // Through the value object.
    int64_t as64() const { return field().as64(); }
    IPE_Object asObject() const { return field().asObject(); }

  protected:
    // The decoder that values may be taken from directly; null for writers, declared and fixed fields.
    SMF_FieldDecoder* plainDecoder() const noexcept;
    virtual void attached() {}
    [[noreturn]] void unconnected() const;
    bool loadable() const noexcept { return data_->loadRow > 0; }

    const SMF_RecordData* data_;
    std::shared_ptr<SMF_FieldMeta> meta_;
    int32_t index_ = -1;
};

// `Field` is the value class of fields/, with get() and set(); `Decoder` the decoder class of the type.
template <int32_t Type, class Value, class Field, class Decoder>
class SMF_HandleOf : public SMF_FieldHandle {
  public:
    int32_t typeNumber() const noexcept override { return Type; }

    // The value of the current row. Views in it live until the next row is read.
    const Value& get() const {
        int64_t row = data_->loadRow - 1;
        if (batch_->contains(row)) [[likely]]
            return batch_->values[row - batch_->first];
        return getSlow();
    }
    // The values of the current row and those behind it that are decoded already: at least one, at most
    // `limit`. Empty when there is no plain column behind the handle, or no current row; get() serves then.
    std::span<const Value> span(size_t limit = SIZE_MAX) const {
        int64_t row = data_->loadRow - 1;
        if (!batch_->contains(row)) {
            if (!decoder_ || row < 0) return {};
            decoder_->load(row + 1);
        }
        auto skip = static_cast<size_t>(row - batch_->first);
        return {batch_->values + skip, std::min(limit, batch_->count - skip)};
    }
    // Sets the value object, on a writer.
    void set(const Value& value) const { static_cast<Field&>(field()).set(value); }
    // Null when there is no plain column behind the handle.
    Decoder* decoder() const noexcept { return decoder_; }

  private:
    const Value& getSlow() const {
        if (decoder_ && loadable()) {
            decoder_->load(data_->loadRow);
            return batch_->values[data_->loadRow - 1 - batch_->first];
        }
        return static_cast<Field&>(field()).get();
    }
    void attached() override {
        decoder_ = static_cast<Decoder*>(plainDecoder());
        batch_ = decoder_ ? &decoder_->batch() : &Empty;
    }

    static inline const SMF_Batch<Value> Empty{};
    Decoder* decoder_ = nullptr;
    const SMF_Batch<Value>* batch_ = &Empty;
};
