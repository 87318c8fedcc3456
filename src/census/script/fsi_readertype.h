// FSI_ReaderType: a census opened by a script. The module `fsi.reader`; create(options[, host]) takes the
// dictionary of FSI_Reader, whose `fsi` names the file, and an `ipe.lua` object.
//
// The object belongs to the script thread that made it.
#pragma once

#include "census/fsi_reader.h"
#include "ipe/object/ipe_moduletype.h"

class FSI_ReaderType final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    FSI_ReaderType(const IPE_Object& options, const IPE_Object& host)
        : IPE_ModuleType(TypeName), reader_(options, host) {}

    FSI_Reader& reader() noexcept { return reader_; }

    // open(path[, ignored]); close(text): the text means nothing; tables(): the names of the stored tables,
    // none once closed; table(name): a connected `fsi.reader.table`, helper indexes allowed.
    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  private:
    IPE_Object tables() const;
    IPE_Object table(std::string_view name);

    FSI_Reader reader_;
};
