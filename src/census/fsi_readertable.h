// FSI_ReaderTable: one table of a census as reports and scripts see it.
//
// Which columns a table has is decided by the application's schema script for it, a Lua chunk that may
// rename, retag, shadow and default stored fields, or define a table that has no stored rows at all. A
// column's value is then reached by its plan (fsi_columnplan.h). Native code reads through handles as in
// every store table.
//
//   FSI_ReaderTable table;
//   table.connect(reader, "File", true);
//   table.header();
//   table.top();
//   while (table.advance()) IPE_Object row = table.recordAsDict();
//
// Values of other tables are those stored there, whatever plan their fields have here, so tables that lead to
// each other end at the first step. Reading a figure of a directory may move the reader's file index there.
//
// Belongs to the reader's thread; the reader must outlive it. When the reader has gone on to another census,
// what the table has not yet opened raises Runtime "Not connected".
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "census/fsi_columnplan.h"
#include "census/fsi_reader.h"
#include "store/smf_readertable.h"

class FSI_ReaderTable_Closure;

class FSI_ReaderTable final : public SMF_ReaderTable {
  public:
    static constexpr size_t MostForeignTables = 32, MostColumns = 256;

    FSI_ReaderTable();
    ~FSI_ReaderTable() override;

    // With `helpers` the names Path and Entity stand for the tables of the paths and the users index. Runtime
    // "No physical or logical table named $table"; errors of the schema script pass through. The cursor
    // stands before the first row.
    void connect(FSI_Reader& reader, std::string_view name, bool helpers);
    FSI_Reader& census() const;
    const std::string& tableName() const noexcept { return tableName_; }
    bool isVirtual() const noexcept { return virtual_; }

    // next(), and whether there is a row.
    bool advance() {
        next();
        return position() <= rows();
    }

    // The indices of the visible fields in output order.
    const std::vector<int32_t>& columns() const noexcept { return columns_; }
    // A new list of one dictionary for each visible column: `name`, `type`, `style`, `label`. Makes the
    // plans.
    IPE_Object header();
    // The plan of a field, made on first use. DatabaseError "$field is not a property on $table objects.",
    // SystemError "Invalid database field type".
    const FSI_ColumnPlan& plan(int32_t index);
    // Of a name; null when the table has no such field.
    const FSI_ColumnPlan* planOf(std::string_view name);

    // The current row's value by plan.
    IPE_Object value(int32_t index) { return value(mutablePlan(index)); }
    // By name; None for a name that is no field.
    IPE_Object valueOf(std::string_view name);
    // Visible columns of the current row, without advancing: a new list, a new dictionary.
    IPE_Object recordAsList();
    IPE_Object recordAsDict();
    // A new list of up to `most` such lists from the current row on, advancing behind each; before the first
    // row it advances first. Empty behind the last row and for `most` below 1.
    IPE_Object batch(int64_t most);
    // All fields by name that the table had when it was connected, stored values without plans.
    IPE_Object fieldsAsDict();
    // Fills a container: a ListType is appended to, a DictType set; others raise RuntimeError "Unsupported
    // type passed to FSI_ReaderTable::get_record()".
    void record(const IPE_Object& container);

    // A foreign table by name, opened on first use, helpers allowed, at row 1. A 33rd name is an assertion.
    FSI_ReaderTable& foreignTable(std::string_view name);
    // A property's value: the first row of `number` in a foreign table of (number, ..., name, value) rows
    // whose column 3 is `name` becomes current there; false when there is none.
    static bool seekProperty(FSI_ReaderTable& table, int64_t number, std::string_view name);

    // The table's own Lua state, in which its schema ran.
    IPE_Lua& lua() const;

  private:
    static constexpr size_t MostCached = 1 << 16;  // values of one plan
    void abandon() noexcept;
    void runSchema();
    void callSchema(const char* function);
    void connectVirtual();
    void chooseColumns();
    void requireCensus() const;
    FSI_ReaderTable& open(std::unique_ptr<FSI_ReaderTable>& place, const char* name, bool helpers);

    FSI_ColumnPlan& mutablePlan(int32_t index);
    void planColumns();
    std::unique_ptr<FSI_ColumnPlan> makePlan(int32_t index);
    void planForeign(FSI_ColumnPlan& plan, const std::string& table, const std::string& mode,
                     const std::string& shown);
    void planPath(FSI_ColumnPlan& plan, const std::string& shown);

    IPE_Object value(FSI_ColumnPlan& plan);
    IPE_Object foreignValue(FSI_ColumnPlan& plan, int64_t number);
    IPE_Object figure(const FSI_ColumnPlan& plan, int64_t number);
    IPE_Object pathText(int64_t number);
    IPE_Object masked(int64_t number, const IPE_Object& value);
    template <class Take>
    void visitColumns(Take&& take);

    FSI_Reader* census_ = nullptr;
    int64_t generation_ = 0;
    std::string tableName_;
    bool virtual_ = false, planned_ = false;
    IPE_Object lua_;      // an IPE_Lua
    IPE_Object closure_;  // what the schema calls as `table`
    // Indexes in use: of this table's rows, and of its plans.
    std::shared_ptr<FSI_EntityHelper> entities_;
    std::shared_ptr<FSI_PathNameHelper> pathNames_;
    std::shared_ptr<FSI_PathLevelHelper> pathLevels_;
    std::vector<int32_t> columns_;
    std::vector<IPE_Object> keys_;  // field names as dictionary keys
    std::unique_ptr<FSI_ReaderTable> path_, storedPath_, root_;
    std::vector<std::pair<std::string, std::unique_ptr<FSI_ReaderTable>>> foreign_;
    std::vector<std::unique_ptr<FSI_ColumnPlan>> plans_;  // by field; they refer to the tables above
};
