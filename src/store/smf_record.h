// SMF_Record: a table's meta and the values of its current row; the base of SMF_ReaderTable and
// SMF_WriterTable.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "store/smf_field.h"
#include "store/smf_recordmeta.h"

class SMF_Record {
  public:
    virtual ~SMF_Record();
    SMF_Record(const SMF_Record&) = delete;
    SMF_Record& operator=(const SMF_Record&) = delete;

    virtual bool isWriter() const noexcept = 0;
    // Raises DatabaseError with `type` and the file's name.
    [[noreturn]] virtual void error(const char* type, std::string_view message) const = 0;

    // Every operation on a record without a meta raises Runtime "Not connected".
    // Adds to the meta; value objects that exist already are built anew.
    int32_t addField(std::string_view name, int32_t type, const IPE_Object& tags);
    int32_t fieldIndex(std::string_view name) const;  // required
    bool hasField(std::string_view name) const;
    IPE_Object asObject(int64_t index) const;
    void assignObject(int64_t index, const IPE_Object& value);
    SMF_Field& field(int64_t index) const { return data_.field(index); }
    // One value object per field; existing ones are dropped. The current row stays.
    void rebuild();

    bool isConnected() const noexcept { return data_.meta != nullptr; }
    SMF_RecordMeta& meta() const;  // "Not connected"
    const SMF_RecordData& data() const noexcept { return data_; }
    // The current row, from 1.
    int64_t row() const noexcept { return data_.row; }

  protected:
    SMF_Record() = default;
    SMF_RecordData data_;
};
