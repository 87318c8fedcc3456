// SMF_ReaderTableType: a cursor of a script over one table of a reader. The module `smf.reader.table`;
// objects come from a reader's table(), one from create() is connected to nothing.
//
//   table.top()
//   while table.more():
//       print table.record()
//       table.next()
//
// (`while` takes the method's result.) The object keeps its reader object alive and belongs to its thread.
#pragma once

#include "ipe/object/ipe_moduletype.h"
#include "store/smf_readertable.h"

class SMF_ReaderTableType final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    SMF_ReaderTableType() : IPE_ModuleType(TypeName) {}

    // `reader` is a SMF_ReaderType.
    void connect(const IPE_Object& reader, std::string_view name, bool restricted);

    // get(index or name), record(): values of the current row. header(text) does nothing. more(): the
    // position is at most the number of rows. next(); seek(n) ends on row n + 1; top() on the first row.
    // schema(), fields(), rows(). Unconnected: Runtime "Not connected"; values of a restricted table:
    // SecurityException "Access to this table is restricted"; Runtime "Field index out of range"; a name
    // that is no field: KeyError.
    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  private:
    void requireFree() const;
    IPE_Object get(const IPE_Object& key);
    IPE_Object record();

    IPE_Object reader_;  // before the table, which refers to it
    SMF_ReaderTable table_;
    IPE_Object fields_;  // name to index
    bool restricted_ = false;
};
