// SMF_ReaderType: a store file opened by a script. The module `smf.reader`; create(restricted) takes an
// optional integer.
//
// A restricted reader gives schemas and row counts of every table, but no values of the tables "File" and
// "Path". The object belongs to the script thread that made it.
#pragma once

#include "ipe/object/ipe_moduletype.h"
#include "store/smf_reader.h"

class SMF_ReaderType final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    explicit SMF_ReaderType(bool restricted) : IPE_ModuleType(TypeName), restricted_(restricted) {}

    SMF_Reader& reader() noexcept { return reader_; }

    // open(path[, ignored]); close(); tables() gives the names; table(name) gives a `smf.reader.table`;
    // options() gives {"compressed": true or false}. Before open: Runtime "Not connected".
    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  private:
    IPE_Object tables() const;
    IPE_Object table(std::string_view name);
    IPE_Object options() const;

    SMF_Reader reader_;
    bool restricted_;
};

// The names of a reader's tables in the order of the file, as a list. Runtime "Not connected".
IPE_Object SMF_TableNames(const SMF_Reader& reader);
