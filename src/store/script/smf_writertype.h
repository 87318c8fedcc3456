// SMF_WriterType: a store file made by a script. The module `smf.writer`.
//
//   writer.open("scan.dat"); table = writer.table("File", schema); table.append([...]); writer.close()
//
// A store is whole only after close(). The object belongs to the script thread that made it.
#pragma once

#include "ipe/object/ipe_moduletype.h"
#include "store/smf_writer.h"

class SMF_WriterType final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    SMF_WriterType() : IPE_ModuleType(TypeName) {}

    SMF_Writer& writer() noexcept { return writer_; }

    // open(path); close(); table(name, schema) gives a `smf.writer.record`; options(dictionary) reads
    // `compressed`, which counts for the tables made afterwards, and for the file as it stands at close.
    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  private:
    IPE_Object table(std::string_view name, const IPE_Object& schema);
    void setOptions(const IPE_Object& options);

    SMF_Writer writer_;
};
