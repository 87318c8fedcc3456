// iterate: calls a script for each row.
//
// The script runs in the application's Lua state and may change the options before they are used. What it
// gets to read rows with stops working when the walk ends.
#include "census/fsi_lists.h"
#include "census/reports/fsi_report.h"
#include "census/script/fsi_recordcallables.h"
#include "ipe/engines/ipe_lua.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

class Iterate final : public FSI_Report {
  public:
    static constexpr int Version = 3;
    explicit Iterate(const IPE_Arguments& arguments) : FSI_Report(arguments) {}

    IPE_Object run() override {
        if (!census().host()) XPK_Raise("KeyError", "$key").string("key", "lua").raise();
        IPE_Lua& lua = *census().host();
        IPE_Object script = requiredOption("script"), given = options();
        lua.setGlobal("options", given);
        lua.compile(PyString_SafeCast(script)->view());
        setOptions(lua.getGlobal("options"));
        openTable(textOption("table", "File"));
        openFilter();
        // What the filter notes belongs to whoever gave the options.
        if (IPE_Object mark = option("_not_cacheable"))
            given.as<IPE_DictType>()->setText("_not_cacheable", mark);
        IPE_Object names = connectColumns();
        rowsLeft_ = integerOption("maxrows", -1, INT64_MIN, INT64_MAX);
        limited_ = rowsLeft_ > 0;
        bool whole = trueOption("subdirs", true);
        std::vector<FSI_Selection> trees = selections(levels());

        FSI_RecordCallables records(table());
        lua.setGlobal("get_record_as_dict", records.asDict());
        lua.setGlobal("get_record_as_list", records.asList());
        lua.callWith("before", options());
        auto rowsOf = [&](const FSI_Selection& tree) { return whole ? treeRows(tree) : ownRows(tree); };
        int64_t total = 0;
        for (const FSI_Selection& tree : trees) total += rowsOf(tree).count;
        progress().start("progress.iterate", "${0}% Reading the rows", total);
        for (const FSI_Selection& tree : trees) {
            if (limited_ && rowsLeft_ == 0) break;
            walk(rowsOf(tree), true, [&] { return visit(lua); });
        }
        lua.callWith("after", options(), names);
        if (!statement().is<IPE_NoneType>()) about();
        return {};
    }

  private:
    // The list of the names of the columns.
    IPE_Object connectColumns() {
        IPE_Object names = IPE_NewList();
        for (const std::string& name : FSI_TextsOf(option("fields"), "column names")) {
            columns_.push_back(table().fieldIndex(name));
            names.as<IPE_ListType>()->append(IPE_String(name));
        }
        std::string field = textOption("field", "");
        field_ = field.empty() ? table().meta().indexOf("Name", false) : table().fieldIndex(field);
        return names;
    }

    // False when enough rows were given.
    bool visit(IPE_Lua& lua) {
        if (!filter().accepts()) return true;
        IPE_Object values = IPE_NewList();
        for (int32_t column : columns_) values.as<IPE_ListType>()->append(table().value(column));
        int64_t row = table().position();
        lua.callWith("during", IPE_String(pathText(pathNumber())),
                     field_ < 0 ? IPE_None() : table().value(field_), values, IPE_Int(row));
        return !limited_ || --rowsLeft_ > 0;
    }

    std::vector<int32_t> columns_;
    int32_t field_ = -1;
    bool limited_ = false;
    int64_t rowsLeft_ = -1;
};

const FSI_ReportRegistration registered("fsi_report.storage.iterate", "storage.iterate",
                                        FSI_CallReport<Iterate>);

}  // namespace
