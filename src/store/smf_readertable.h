// SMF_ReaderTable: a cursor over one table of a reader.
//
//   table.connect(reader, "File");
//   table.top();
//   table.next();
//   while (table.position() <= table.rows()) { ...; table.next(); }
//
// In the current layout a step is one counter; values are decoded when a field is asked. In the older layout
// each step decodes the whole row.
#pragma once

#include "store/smf_reader.h"
#include "store/smf_record.h"

class SMF_ReaderTable : public SMF_Record {
  public:
    SMF_ReaderTable();
    ~SMF_ReaderTable() override;
    bool isWriter() const noexcept override { return false; }
    [[noreturn]] void error(const char* type, std::string_view message) const override;

    // Runtime "Unable to determine internal table location $table". `reader` must outlive the table.
    void connect(SMF_Reader& reader, std::string_view name);
    // A second name for a stored column, with its own tags or, when `tags` is null, those of `source`.
    // Nothing if `name` exists. "The shadow field $field does not exist", "Unable to add the shadow field".
    void addShadow(std::string_view name, std::string_view source, const IPE_Object& tags);

    void top();
    // Moves to the next row. Behind the last one the position is rows() + 1 and every value is reset. Raises
    // SystemExit at every 32,003rd row once the server stops.
    void next() {
        if (data_.meta && position_ < rows_ && currentLayout_ && position_ % StopCheckRows != 0) [[likely]]
            data_.row = data_.loadRow = ++position_;
        else
            nextSlow();
    }
    // The row becomes the current one; the next() that follows gives row + 1. Runtime "Seek past end of
    // table".
    void seek(int64_t row);
    int64_t rows() const noexcept { return rows_; }
    int64_t position() const noexcept { return position_; }
    SMF_Reader* reader() const noexcept { return reader_; }

  protected:
    // A table without stored columns: `rows` rows that all show what the value objects hold.
    void connectDeclared(SMF_Reader& reader, std::shared_ptr<SMF_RecordMeta> meta, int64_t rows);

  private:
    static constexpr int64_t StopCheckRows = 32003;
    void disconnect(SMF_Reader& reader);
    void nextSlow();
    void connectOld(const SMF_HeaderReader& header);
    void stopCheck() const;
    void decodeRow();
    void restartDecoders();
    void seekOld(int64_t row);

    SMF_Reader* reader_ = nullptr;
    std::shared_ptr<SMF_StoreFile> store_;  // what this table reads, even when the reader goes on to another
    bool currentLayout_ = true;
    bool declared_ = false;  // no stored columns; value objects keep what they were given
    int64_t rows_ = 0;
    int64_t position_ = 0;
    // Older layout: the streams of the table and its decoders in field order.
    std::unique_ptr<SMF_DecoderStream> data104_, jumps105_;
    std::vector<std::shared_ptr<SMF_FieldDecoder>> decoders_;
    int64_t zero_ = 0;
};
