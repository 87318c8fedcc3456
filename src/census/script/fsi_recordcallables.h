// FSI_ReaderTable_GetRecordAsDict and FSI_ReaderTable_GetRecordAsList: a table's current row for the script
// of a row walk. Each call gives a new container and leaves the cursor where it is.
//
// The script may keep a callable longer than its table lives; whoever gave it away detaches it first, and a
// call then raises Runtime "Not connected":
//
//   FSI_RecordCallables records(table);  // detaches at the end of the scope
//   lua.setGlobal("get_record_as_dict", records.asDict());
//   lua.setGlobal("get_record_as_list", records.asList());
#pragma once

#include "census/fsi_readertable.h"
#include "ipe/object/ipe_arguments.h"

class FSI_RecordCallable : public IPE_Type {
  public:
    void detach() noexcept { table_ = nullptr; }

  protected:
    FSI_RecordCallable(const char* typeName, FSI_ReaderTable& table) : IPE_Type(typeName), table_(&table) {}
    FSI_ReaderTable& table() const;

  private:
    FSI_ReaderTable* table_;
};

class FSI_ReaderTable_GetRecordAsDict final : public FSI_RecordCallable {
  public:
    static const char TypeName[];
    explicit FSI_ReaderTable_GetRecordAsDict(FSI_ReaderTable& table) : FSI_RecordCallable(TypeName, table) {}
    IPE_Object __call__(const IPE_Arguments& arguments) override;
};

class FSI_ReaderTable_GetRecordAsList final : public FSI_RecordCallable {
  public:
    static const char TypeName[];
    explicit FSI_ReaderTable_GetRecordAsList(FSI_ReaderTable& table) : FSI_RecordCallable(TypeName, table) {}
    IPE_Object __call__(const IPE_Arguments& arguments) override;
};

// Both for one table. Belongs to the table's thread.
class FSI_RecordCallables {
  public:
    explicit FSI_RecordCallables(FSI_ReaderTable& table);
    ~FSI_RecordCallables();
    FSI_RecordCallables(const FSI_RecordCallables&) = delete;
    FSI_RecordCallables& operator=(const FSI_RecordCallables&) = delete;

    const IPE_Object& asDict() const noexcept { return asDict_; }
    const IPE_Object& asList() const noexcept { return asList_; }

  private:
    IPE_Object asDict_, asList_;
};
