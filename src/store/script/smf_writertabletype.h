// SMF_WriterTableType: one table of a store that a script makes. The module `smf.writer.record`; objects come
// from a writer's table(), one from create() is connected to nothing.
//
// The object keeps its writer object alive and belongs to its thread.
#pragma once

#include "ipe/object/ipe_moduletype.h"
#include "store/smf_writer.h"

class SMF_WriterTableType final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    SMF_WriterTableType() : IPE_ModuleType(TypeName) {}

    // `writer` is an open SMF_WriterType. Faults of the schema as SMF_WriterTable::createFromSchema.
    void create(const IPE_Object& writer, std::string_view name, const IPE_Object& schema);

    // append(values): a list or tuple in field order, stored as the next record; further items are ignored.
    // Runtime "Not connected" once the writer is closed.
    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  private:
    IPE_Object writer_;  // before the table, which refers to it
    SMF_WriterTable table_;
};
