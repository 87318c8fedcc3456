// SMF_CursorType: a reader, one table of it and a filter behind one object. The module `smf.cursor`.
//
//   cursor.open(path)
//   cursor.connect("File")
//   cursor.filter("Size > 5MB")
//   cursor.range()
//   while cursor:
//       print cursor.record()
//
// The truth test is the step: it moves to the next row of the range that passes the filter and is true if
// there is one. A cursor without a range is false. The object belongs to the script thread that made it.
#pragma once

#include <memory>
#include <vector>

#include "ipe/object/ipe_moduletype.h"
#include "store/filters/smf_recordfilter.h"
#include "store/smf_readertable.h"

class SMF_CursorType final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    SMF_CursorType();

    // open(path) gives the table names; connect(name) the field names; schema(); filter(text[, variables])
    // the tokens; range() all rows, range(first[, count]) rows from `first` on, counted before the filter;
    // header([names]) chooses columns; tellp() the current row; record([as dictionary]).
    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    bool __nonzero__() override;

    // Puts the current row's values of the chosen columns into a list or a dictionary. Any other value:
    // RuntimeError "Unsupported type passed to FSI_ReaderTable::get_record()".
    void record(const IPE_Object& container);

  private:
    struct Column {
        int32_t index;
        IPE_Object entry;  // the tuple of index, description and name that header() gives
        IPE_Object name;
    };
    IPE_Object open(const EPA_FileName& path);
    IPE_Object connect(std::string_view name);
    IPE_Object filter(const IPE_Arguments& arguments);
    void range(const IPE_Arguments& arguments);
    IPE_Object header(const IPE_Arguments& arguments);
    Column column(const SMF_FieldMeta& field) const;
    std::vector<Column> plainColumns() const;
    void disconnect();
    bool passes();

    SMF_Reader reader_;
    std::unique_ptr<SMF_ReaderTable> table_;    // never null
    std::unique_ptr<SMF_RecordFilter> filter_;  // null before filter()
    IPE_Object variables_;                      // null for the filter's own
    bool started_ = true;
    int64_t first_ = 0, count_ = 0;
    bool chosen_ = false;  // header() has been called
    std::vector<Column> columns_;
};
