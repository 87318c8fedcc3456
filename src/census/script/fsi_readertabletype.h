// FSI_ReaderTableType: a cursor of a script over one table of a census. The module `fsi.reader.table`;
// objects come from a reader's table(), one from create() is connected to nothing.
//
//   table.get_header()
//   rows = table.pump(batch=1000)
//
// The object keeps its reader object alive and belongs to its thread.
#pragma once

#include "census/fsi_readertable.h"
#include "ipe/object/ipe_moduletype.h"

class FSI_ReaderTableType final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    FSI_ReaderTableType() : IPE_ModuleType(TypeName) {}

    // `reader` is a FSI_ReaderType.
    void connect(const IPE_Object& reader, std::string_view name);
    FSI_ReaderTable& table() noexcept { return table_; }

    // get_header(): FSI_ReaderTable::header. record_as_list(), record_as_dict(): the current row, which stays
    // current. record_as_list(batch=n) and pump(batch=n): up to n rows from the current one on,
    // FSI_ReaderTable::batch. seek(n): row n becomes current; next(): the row behind. Unconnected: Runtime
    // "Not connected".
    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  private:
    IPE_Object reader_;  // before the table, which refers to it
    FSI_ReaderTable table_;
};
