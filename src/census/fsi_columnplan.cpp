// How columns are reached: plans out of tags, and the header that tells of them.
//
// The tags are tested in a fixed order, and the first test that holds decides. A plan names the field of the
// other table by its index, so a row costs no look-up by name.
#include "census/fsi_columnplan.h"

#include "census/fsi_readertable.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "store/smf_error.h"

namespace {

struct Figure {
    const char* shown;
    FSI_PlanKind kind;
    bool bytes;
};
constexpr Figure Figures[] = {
    {"Size", FSI_PlanSize, true},
    {"Space", FSI_PlanSpace, true},
    {"Files", FSI_PlanFiles, false},
    {"Depth", FSI_PlanDepth, false},
    {"TreeSize", FSI_PlanTreeSize, true},
    {"TreeSpace", FSI_PlanTreeSpace, true},
    {"TreeFiles", FSI_PlanTreeFiles, false},
    {"LastCreated", FSI_PlanLastCreated, false},
    {"LastModified", FSI_PlanLastModified, false},
    {"LastAccessed", FSI_PlanLastAccessed, false},
};

const Figure* figureNamed(const std::string& shown) {
    for (const Figure& figure : Figures)
        if (shown == figure.shown) return &figure;
    return nullptr;
}

// The names that columns have for users; a date or a time alone is none of them.
std::string columnType(const SMF_FieldMeta& field) {
    if (field.type == SMF_TypeDate || field.type == SMF_TypeTime || SMF_TypeName(field.type).empty())
        XPK_Raise("SystemError", "Invalid database field type").string("field", field.name).raise();
    return std::string(SMF_TypeName(field.type));
}

IPE_Object emptyOf(const SMF_FieldMeta& field) {
    switch (field.type) {
        case SMF_TypeI32:
        case SMF_TypeI64: return IPE_Int(0);
        case SMF_TypeTree: return IPE_NewList();
        default: return IPE_String("");
    }
}

const SMF_FieldMeta& fieldOf(const FSI_ReaderTable& table, int32_t index) {
    return *table.meta().fields[static_cast<size_t>(index)];
}

int32_t requireField(FSI_ReaderTable& table, const std::string& name) {
    int32_t index = table.meta().indexOf(name, false);
    if (index < 0)
        SMF_Fail(SMF_Runtime, "$field is not a property on $table objects.", table.census().name(),
                 {{"field", name}, {"table", table.meta().tableName}});
    return index;
}

// What a header tells of a plan that shows this field.
void describe(FSI_ColumnPlan& plan, const SMF_FieldMeta& shown) {
    plan.type = columnType(shown);
    plan.empty = emptyOf(shown);
    if (std::string style = shown.tagText("style"); !style.empty()) plan.style = style;
}

}  // namespace

std::unique_ptr<FSI_ColumnPlan> FSI_ReaderTable::makePlan(int32_t index) {
    const SMF_FieldMeta& field = fieldOf(*this, index);
    std::string table = field.tagText("FTable"), mode = field.tagText("FMode"),
                shown = field.tagText("FShow");
    auto plan = std::make_unique<FSI_ColumnPlan>();
    plan->index = index;
    plan->style = field.tagText("style");
    if (table == "PathName" && (shown == "Path" || shown == "UNC")) {
        plan->kind = shown == "Path" ? FSI_PlanPathText : FSI_PlanUncText;
        plan->type = "String";
        plan->style = "pathname";
    } else if (const Figure* figure = table == "PathLevel" ? figureNamed(shown) : nullptr) {
        plan->kind = figure->kind;
        plan->type = "I64";
        if (figure->bytes) plan->style = "bytes";
    } else if (table == "Path") {
        planPath(*plan, shown);
    } else if (!table.empty() || mode == "1:1" || mode == "UDP") {
        planForeign(*plan, table, mode, shown);
    } else {
        describe(*plan, field);
    }
    return plan;
}

// The paths index has few columns; the others are in the table that the scan wrote, where texts stand in
// clear.
void FSI_ReaderTable::planPath(FSI_ColumnPlan& plan, const std::string& shown) {
    plan.kind = FSI_PlanPath;
    FSI_ReaderTable* path = &open(path_, "Path", true);
    const bool stored = !path->hasField(shown);
    if (stored) path = &open(storedPath_, "Path", false);
    plan.table = path;
    plan.shown = requireField(*path, shown);
    plan.masked = stored && census_->isSet("hide_paths") &&
                  SMF_SameType(fieldOf(*path, plan.shown).type, SMF_TypeString);
    describe(plan, fieldOf(*path, plan.shown));
    if (census_->location("Root") == -1) return;
    plan.rootTable = &open(root_, "Root", true);
    plan.rootShown = plan.rootTable->meta().indexOf(shown, false);
}

void FSI_ReaderTable::planForeign(FSI_ColumnPlan& plan, const std::string& table, const std::string& mode,
                                  const std::string& shown) {
    plan.table = &foreignTable(table);
    if (mode == "UDP") {
        plan.kind = FSI_PlanProperty;
        plan.property = plan.label = shown;
        plan.type = "String";
        plan.empty = IPE_String("");
        return;
    }
    plan.kind = mode == "1:1" ? FSI_PlanOneToOne : FSI_PlanForeign;
    plan.shown = requireField(*plan.table, shown);
    describe(plan, fieldOf(*plan.table, plan.shown));
}

FSI_ColumnPlan& FSI_ReaderTable::mutablePlan(int32_t index) {
    auto at = static_cast<size_t>(index);
    if (at < plans_.size() && plans_[at]) [[likely]]
        return *plans_[at];
    meta().nameOf(index);  // "Field index out of range"
    plans_.resize(meta().fields.size());
    plans_[at] = makePlan(index);
    return *plans_[at];
}

const FSI_ColumnPlan& FSI_ReaderTable::plan(int32_t index) { return mutablePlan(index); }

const FSI_ColumnPlan* FSI_ReaderTable::planOf(std::string_view name) {
    int32_t index = meta().indexOf(name, false);
    return index < 0 ? nullptr : &plan(index);
}

void FSI_ReaderTable::planColumns() {
    meta();
    for (int32_t index : columns_) mutablePlan(index);
    planned_ = true;
}

IPE_Object FSI_ReaderTable::header() {
    planColumns();
    IPE_Object list = IPE_NewList();
    for (int32_t index : columns_) {
        const FSI_ColumnPlan& plan = mutablePlan(index);
        IPE_Object column = IPE_NewDict();
        IPE_Dict_Set(column, "name", IPE_String(meta().nameOf(index)));
        IPE_Dict_Set(column, "type", IPE_String(plan.type));
        IPE_Dict_Set(column, "style", IPE_String(plan.style));
        if (plan.kind == FSI_PlanProperty) IPE_Dict_Set(column, "label", IPE_String(plan.label));
        list.as<IPE_ListType>()->append(std::move(column));
    }
    return list;
}
