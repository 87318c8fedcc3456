// SMF_RowBuffer: records for a writer's table, collected and stored column by column.
//
//   SMF_RowBuffer rows(table);
//   SMF_I32Column owner;  SMF_TextColumn name;
//   owner.connect(rows, "Owner", "R");  name.connect(rows, "Name", "F");
//   table.create("File", writer, 0x10000, 2000);
//   for (...) { owner.set(1);  name.set(text);  rows.next(); }
//   rows.flush();
//
// For native code that writes millions of records: a value costs a store into an array, and its encoder sees
// many at once. The bytes of every column are those of single commits. Each field of the table is a column
// that is connected before the table is created, and set in every row. What was not flushed when the writer
// closes is lost. One thread, that of the table, which outlives the buffer.
#pragma once

#include <array>
#include <string_view>
#include <vector>

#include "store/smf_encoderstream.h"
#include "store/smf_format.h"
#include "store/smf_values.h"
#include "store/smf_writer.h"

class SMF_BufferColumn;

class SMF_RowBuffer {
  public:
    static constexpr size_t Rows = 256;

    explicit SMF_RowBuffer(SMF_WriterTable& table) : table_(table) {}
    SMF_RowBuffer(const SMF_RowBuffer&) = delete;
    SMF_RowBuffer& operator=(const SMF_RowBuffer&) = delete;

    // The row is complete; the next one begins. Raises what a commit raises.
    void next() {
        if (++count_ == Rows) flush();
    }
    // Stores the complete rows.
    void flush();

  private:
    friend class SMF_BufferColumn;
    SMF_WriterTable& table_;
    std::vector<SMF_ColumnValues*> columns_;  // by the index of their fields
    size_t count_ = 0;
};

class SMF_BufferColumn : public SMF_ColumnValues {
  public:
    SMF_BufferColumn() = default;
    SMF_BufferColumn(const SMF_BufferColumn&) = delete;
    SMF_BufferColumn& operator=(const SMF_BufferColumn&) = delete;

  protected:
    ~SMF_BufferColumn() = default;
    void connect(SMF_RowBuffer& rows, std::string_view name, int32_t type, const IPE_Object& tags);
    void connect(SMF_RowBuffer& rows, std::string_view name, int32_t type, std::string_view format);
    // The row to set.
    size_t row() const noexcept { return rows_->count_; }

  private:
    SMF_RowBuffer* rows_ = nullptr;
};

template <int32_t Type, class Value>
class SMF_ValueColumn final : public SMF_BufferColumn {
  public:
    // `format`: the letters of the codecs wanted; or all tags.
    void connect(SMF_RowBuffer& rows, std::string_view name, std::string_view format) {
        SMF_BufferColumn::connect(rows, name, Type, format);
    }
    void connect(SMF_RowBuffer& rows, std::string_view name, const IPE_Object& tags) {
        SMF_BufferColumn::connect(rows, name, Type, tags);
    }
    void set(const Value& value) noexcept { values_[row()] = value; }

  private:
    void store(SMF_FieldEncoder& encoder, size_t count) override {
        static_cast<SMF_EncoderOf<Value>&>(encoder).storeRows({values_.data(), count});
    }
    std::array<Value, SMF_RowBuffer::Rows> values_;
};
using SMF_I32Column = SMF_ValueColumn<SMF_TypeI32, int32_t>;
using SMF_I64Column = SMF_ValueColumn<SMF_TypeI64, int64_t>;
using SMF_FlagColumn = SMF_ValueColumn<SMF_TypeFlag, SMF_FlagValue>;

// Moments, as seconds since 1970: 0 stands for none, as a moment that no date tells.
class SMF_SecondsColumn final : public SMF_BufferColumn {
  public:
    void connect(SMF_RowBuffer& rows, std::string_view name, std::string_view format) {
        SMF_BufferColumn::connect(rows, name, SMF_TypeDateTime, format);
    }
    void set(int64_t seconds) noexcept { seconds_[row()] = seconds; }

  private:
    void store(SMF_FieldEncoder& encoder, size_t count) override;
    std::array<int64_t, SMF_RowBuffer::Rows> seconds_;
};

// Texts are copied.
class SMF_TextColumn final : public SMF_BufferColumn {
  public:
    void connect(SMF_RowBuffer& rows, std::string_view name, std::string_view format) {
        SMF_BufferColumn::connect(rows, name, SMF_TypeString, format);
    }
    void set(std::string_view text) {
        size_t start = row() == 0 ? 0 : ends_[row() - 1], end = start + text.size();
        if (end > text_.size()) text_.resize(2 * end);
        SMF_CopyShort(text_.data() + start, text.data(), text.size());
        ends_[row()] = end;
    }

  private:
    void store(SMF_FieldEncoder& encoder, size_t count) override;
    std::vector<char> text_;
    std::array<size_t, SMF_RowBuffer::Rows> ends_;
};
