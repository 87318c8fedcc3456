// group_by_pcre and group_by_pcre_date: how much there is of what, the latter month by month.
//
// Sums stand in arrays by the number of the group; a month of a group has a number of its own.
#include <algorithm>
#include <numeric>

#include "census/fsi_lists.h"
#include "census/reports/fsi_datecolumn.h"
#include "census/reports/fsi_dictorder.h"
#include "census/reports/fsi_keyindex.h"
#include "census/reports/fsi_quad64.h"
#include "census/reports/fsi_report.h"
#include "census/reports/fsi_rowbatch.h"
#include "census/reports/fsi_rowgroups.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_i64field.h"

namespace {

IPE_Object number(uint64_t value) { return IPE_Int(static_cast<int64_t>(value)); }

class Grouping : public FSI_Report {
  protected:
    explicit Grouping(const IPE_Arguments& arguments) : FSI_Report(arguments) {}

    virtual void connectColumns() {}
    // Adds to what stands beside the sums of a group.
    virtual void add(uint32_t group, int64_t size, int64_t space) {}
    // Called before the rows of all groups are asked for.
    virtual void closeGroups(size_t count) {}
    virtual IPE_Object lastColumn(uint32_t group, const FSI_Quad64& sums) = 0;
    virtual void clear() {}

    // `last` is the name of the last column.
    void group(const std::string& last) {
        bool perPath = trueOption("perpath");
        openTable("File");
        FSI_RowGroups groups(table(), rules());
        openFilter();
        connectColumn(size_, "Size");
        connectColumn(space_, "Space");
        connectColumns();
        std::vector<FSI_Selection> trees = selections(levels());
        createTable("create table if not exists $table (cache, ipath, value, size, space, " + last + ")");
        sql_ = "insert into $table (cache, ipath, value, size, space, " + last +
               ") values ($cache,$ipath__c,?,?,?,?)";
        int64_t total = 0;
        for (const FSI_Selection& tree : trees) total += treeRows(tree).count;
        progress().start("progress.group_by_pcre", "${0}% Grouping the files", total);
        for (const FSI_Selection& tree : trees) {
            walkTree(tree, groups);
            if (perPath) write(tree.number, groups);
        }
        if (!perPath) write(trees.size() == 1 ? trees.front().number : 0, groups);
        about();
    }

  private:
    FSI_RowGroups::Rules rules() {
        FSI_RowGroups::Rules rules;
        rules.column = textOption("field", "name");
        std::string xform = textOption("xform", "");
        IPE_Object source = xform.empty() ? options() : prepare(xform, rules);
        IPE_DictType& settings = *PyDict_SafeCast(source);
        auto setting = [&](const char* key) {
            IPE_Object value(settings.findText(key));
            return value.is<IPE_NoneType>() ? IPE_Object() : value;
        };
        IPE_Object expression = setting("regex"), absent = setting("regex_dvalue");
        if (expression.isNull()) XPK_Raise("KeyError", "$key").string("key", "regex").raise();
        rules.expression = IPE_Object_Text(expression);
        if (!absent.isNull()) rules.absent = IPE_Object_Text(absent);
        if (!xform.empty()) rules.columns = FSI_TextsOf(setting("columns"), "column names");
        return rules;
    }

    // Loads the transform; gives what its `before` answers.
    IPE_Object prepare(const std::string& name, FSI_RowGroups::Rules& rules) {
        if (!census().host()) XPK_Raise("KeyError", "$key").string("key", "lua").raise();
        IPE_Object text = census().apiCall("ResolveIncludeScript", {IPE_String(name)});
        lua_ = IPE_NewLua();
        IPE_Lua& lua = *IPE_LuaOf(lua_);
        lua.compile(PyString_SafeCast(text)->view(), "FSI Filter: " + name);
        IPE_Object answer = lua.callWith("before", options());
        rules.transform = lua.getGlobal("during");
        if (!rules.transform.is<IPE_LuaFunction>())
            XPK_Raise("RuntimeError", "Could not locate a Lua function named '$func'")
                .string("func", "during")
                .raise();
        return answer;
    }

    void walkTree(const FSI_Selection& tree, FSI_RowGroups& groups) {
        walkMatches(treeRows(tree), [&] {
            uint32_t group = groups.ofRow();
            if (group == FSI_RowGroups::None) return;
            if (group >= sums_.size()) sums_.resize(group + 1);
            int64_t size = size_.get(), space = space_.get();
            uint64_t* counters = sums_[group].counters;
            counters[0] += static_cast<uint64_t>(size);
            counters[1] += static_cast<uint64_t>(space);
            ++counters[2];
            add(group, size, space);
        });
    }

    void write(int64_t path, FSI_RowGroups& groups) {
        std::vector<IPE_Object> names;
        for (const std::string& name : groups.names()) names.push_back(IPE_String(name));
        sums_.resize(names.size());
        closeGroups(names.size());
        const IPE_Object arguments[] = {IPE_String("ipath"), IPE_Int(path)};
        IPE_CallScriptMethod(statement(), "set", IPE_Arguments(arguments, 2));
        FSI_RowBatch rows(statement(), sql_, FSI_RowBatch::Long);
        for (uint32_t group : FSI_DictOrder(names)) {
            const FSI_Quad64& sums = sums_[group];
            rows.add(names[group], number(sums.counters[0]), number(sums.counters[1]),
                     lastColumn(group, sums));
        }
        rows.flush(true);
        groups.clear();
        sums_.clear();
        clear();
    }

    IPE_Object lua_;  // of the transform
    SMF_I64 size_, space_;
    std::string sql_;
    std::vector<FSI_Quad64> sums_;  // size, space, count
};

class GroupByPcre final : public Grouping {
  public:
    static constexpr int Version = 11;
    explicit GroupByPcre(const IPE_Arguments& arguments) : Grouping(arguments) {}

    IPE_Object run() override {
        group("count");
        return {};
    }

  private:
    IPE_Object lastColumn(uint32_t, const FSI_Quad64& sums) override { return number(sums.counters[2]); }
};

// Months are counted from the year 0: year * 12 + month, with months from 1.
class GroupByPcreDate final : public Grouping {
  public:
    static constexpr int Version = 8;
    explicit GroupByPcreDate(const IPE_Arguments& arguments) : Grouping(arguments) {}

    IPE_Object run() override {
        if (IPE_Object epoch = FSI_RecordFilter::epoch(census(), options())) {
            SMF_DateValue date;
            SMF_TimeValue time;
            if (SMF_LocalMoment(IPE_TimeOf(epoch), date, time)) lastMonth_ = monthOf(date);
        }
        group("object");
        return {};
    }

  private:
    struct Cell {
        uint64_t size = 0, space = 0;
    };
    static int32_t monthOf(const SMF_DateValue& date) { return date.year * 12 + date.month; }

    void connectColumns() override { pivot_.connect(table(), textOption("pivot", "accessed")); }

    void add(uint32_t group, int64_t size, int64_t space) override {
        int32_t month = std::min(monthOf(pivot_.get()), lastMonth_);
        uint32_t id = index_.idOf(uint64_t{group} << 32 | static_cast<uint32_t>(month));
        if (id == cells_.size()) cells_.emplace_back();
        cells_[id].size += static_cast<uint64_t>(size);
        cells_[id].space += static_cast<uint64_t>(space);
    }

    void closeGroups(size_t count) override {
        order_.resize(cells_.size());
        std::iota(order_.begin(), order_.end(), 0u);
        std::stable_sort(order_.begin(), order_.end(),
                         [&](uint32_t a, uint32_t b) { return groupOf(a) < groupOf(b); });
        begins_.assign(count + 1, 0);
        for (uint32_t id : order_) ++begins_[groupOf(id) + 1];
        std::partial_sum(begins_.begin(), begins_.end(), begins_.begin());
    }

    IPE_Object lastColumn(uint32_t group, const FSI_Quad64&) override {
        IPE_Object byMonth = IPE_NewDict(), byName = IPE_NewDict();
        IPE_DictType& months = *byMonth.as<IPE_DictType>();
        for (size_t i = begins_[group]; i < begins_[group + 1]; ++i) {
            const Cell& cell = cells_[order_[i]];
            months.set(IPE_Int(static_cast<int32_t>(index_.keys()[order_[i]])),
                       IPE_TupleOf({number(cell.size), number(cell.space)}));
        }
        for (uint32_t slot = 0; slot < months.slots(); ++slot) {
            if (!months.keyAt(slot)) continue;
            int month = static_cast<int>(months.keyAt(slot)->__int__());
            char name[32];
            std::snprintf(name, sizeof name, "%04i-%02i", (month - 1) / 12, (month - 1) % 12 + 1);
            byName.as<IPE_DictType>()->setText(name, IPE_Object(months.valueAt(slot)));
        }
        return IPE_String(IPE_Object_ToString(byName));
    }

    void clear() override {
        index_.clear();
        cells_.clear();
    }
    uint32_t groupOf(uint32_t id) const { return static_cast<uint32_t>(index_.keys()[id] >> 32); }

    FSI_DateColumn pivot_;
    int32_t lastMonth_ = INT32_MAX;
    FSI_KeyIndex index_;  // group and month
    std::vector<Cell> cells_;
    std::vector<uint32_t> order_;  // the cells by group
    std::vector<size_t> begins_;   // of each group in it
};

const FSI_ReportRegistration byPcre("fsi_report.storage.group_by_pcre", "storage.group_by_pcre",
                                    FSI_CallReport<GroupByPcre>);
const FSI_ReportRegistration byPcreDate("fsi_report.storage.group_by_pcre_date", "storage.group_by_pcre_date",
                                        FSI_CallReport<GroupByPcreDate>);

}  // namespace
