// Tables of a census: the values of the current row.
//
// A column costs a test of its plan's kind and one read. What stands for a number in another table is kept by
// number, since a report reads the same owner for many rows; the numbers of a census are no more than its
// entities, but a damaged or foreign one may hold any, so a full cache starts again.
#include "census/fsi_readertable.h"

#include <algorithm>

#include "census/index/fsi_pathlevelhelper.h"
#include "census/index/fsi_pathnamehelper.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

// A value that is given out more than once: who gets a list may change it.
IPE_Object ownCopy(const IPE_Object& value) {
    return value.is<IPE_ListType>() ? IPE_Object_Copy(value) : value;
}

FSI_Figure figureOf(int32_t kind) {
    switch (kind) {
        case FSI_PlanSize: return FSI_PathSize;
        case FSI_PlanSpace: return FSI_PathSpace;
        case FSI_PlanFiles: return FSI_PathFiles;
        case FSI_PlanTreeSize: return FSI_TreeSize;
        case FSI_PlanTreeSpace: return FSI_TreeSpace;
        case FSI_PlanTreeFiles: return FSI_TreeFiles;
        case FSI_PlanLastCreated: return FSI_TreeMaxCreated;
        case FSI_PlanLastModified: return FSI_TreeMaxModified;
        case FSI_PlanLastAccessed: return FSI_TreeMaxAccessed;
        default: return FSI_FigureCount;
    }
}

[[noreturn]] void badKind(int32_t kind) {
    XPK_Raise("DevelopmentError", "Bad foreign key type #$mode in FSI_ReaderTable")
        .number("mode", kind)
        .raise();
}

IPE_Object shownAt(FSI_ReaderTable& table, int64_t row, int32_t field) {
    table.seek(row);
    return table.asObject(field);
}

// The first row whose column 0 is not below `number`; rows() + 1 when there is none. The row of that number
// is tried first: properties may be numbered by the first of their rows.
int64_t firstRowOf(FSI_ReaderTable& table, int64_t number) {
    auto numberAt = [&](int64_t row) {
        table.seek(row);
        return table.field(0).as64();
    };
    int64_t low = 1, high = table.rows() + 1;
    if (number < high && numberAt(number) == number && (number == 1 || numberAt(number - 1) < number))
        return number;
    while (low < high) {
        int64_t middle = low + (high - low) / 2;
        if (numberAt(middle) < number)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

constexpr int32_t PropertyName = 3, PropertyValue = 4;

}  // namespace

bool FSI_ReaderTable::seekProperty(FSI_ReaderTable& table, int64_t number, std::string_view name) {
    if (number <= 0) return false;
    for (int64_t row = firstRowOf(table, number); row <= table.rows(); ++row) {
        table.seek(row);
        if (table.field(0).as64() != number) return false;
        if (table.field(PropertyName).asText() == name) return true;
    }
    return false;
}

IPE_Object FSI_ReaderTable::figure(const FSI_ColumnPlan& plan, int64_t number) {
    if (!pathLevels_) {
        requireCensus();
        pathLevels_ = census_->sharePathLevels();
    }
    pathLevels_->locateNumber(number);
    if (plan.kind == FSI_PlanDepth) return IPE_Int(pathLevels_->depth());
    FSI_Figure figure = figureOf(plan.kind);
    if (figure == FSI_FigureCount) badKind(plan.kind);
    return IPE_Int(pathLevels_->figure(figure));
}

IPE_Object FSI_ReaderTable::pathText(int64_t number) {
    if (!pathNames_) {
        requireCensus();
        pathNames_ = census_->sharePathNames();
    }
    return IPE_String(pathNames_->path(number));
}

// A text of a folder as the paths index would show it: in clear only near the root.
IPE_Object FSI_ReaderTable::masked(int64_t number, const IPE_Object& value) {
    int32_t levels = path_->meta().indexOf("Levels", false);
    if (levels >= 0 && shownAt(*path_, number, levels)->__int__() <= FSI_ClearLevels) return value;
    return IPE_String(SMF_PathMask(IPE_Object_Text(value)));
}

IPE_Object FSI_ReaderTable::foreignValue(FSI_ColumnPlan& plan, int64_t number) {
    if (number <= 0) return ownCopy(plan.empty);
    switch (plan.kind) {
        case FSI_PlanOneToOne: return shownAt(*plan.table, number, plan.shown);
        case FSI_PlanForeign: {
            if (auto known = plan.cache.find(number); known != plan.cache.end())
                return ownCopy(known->second);
            IPE_Object value = shownAt(*plan.table, number, plan.shown);
            if (plan.cache.size() >= MostCached) plan.cache.clear();
            plan.cache.emplace(number, value);
            return ownCopy(value);
        }
        case FSI_PlanProperty:
            return seekProperty(*plan.table, number, plan.property) ? plan.table->asObject(PropertyValue)
                                                                    : plan.empty;
        case FSI_PlanPath:
            if (number > 1) {
                IPE_Object value = shownAt(*plan.table, number, plan.shown);
                return plan.masked ? masked(number, value) : value;
            }
            if (plan.rootShown < 0 || plan.rootTable->rows() < 1) return ownCopy(plan.empty);
            return shownAt(*plan.rootTable, 1, plan.rootShown);
    }
    badKind(plan.kind);
}

IPE_Object FSI_ReaderTable::value(FSI_ColumnPlan& plan) {
    if (plan.kind == FSI_PlanStored) [[likely]]
        return asObject(plan.index);
    int64_t number = data_.field(plan.index).as64();
    if (!plan.isFigure() && !plan.isPathText()) return foreignValue(plan, number);
    if (plan.lastValue.isNull() || number != plan.lastNumber) {
        plan.lastValue = plan.isFigure() ? figure(plan, number) : pathText(number);
        plan.lastNumber = number;
    }
    return plan.lastValue;
}

IPE_Object FSI_ReaderTable::valueOf(std::string_view name) {
    int32_t index = meta().indexOf(name, false);
    return index < 0 ? IPE_None() : value(index);
}

// --- Records.

template <class Take>
void FSI_ReaderTable::visitColumns(Take&& take) {
    if (!planned_) planColumns();
    for (int32_t index : columns_) take(index, value(*plans_[static_cast<size_t>(index)]));
}

void FSI_ReaderTable::record(const IPE_Object& container) {
    if (auto* list = container.tryAs<IPE_ListType>())
        visitColumns([&](int32_t index, IPE_Object value) { list->append(std::move(value)); });
    else if (auto* dict = container.tryAs<IPE_DictType>())
        visitColumns([&](int32_t index, IPE_Object value) {
            dict->set(keys_[static_cast<size_t>(index)], std::move(value));
        });
    else
        XPK_Raise("RuntimeError", "Unsupported type passed to FSI_ReaderTable::get_record()").raise();
}

IPE_Object FSI_ReaderTable::recordAsList() {
    IPE_Object list = IPE_NewList();
    list.as<IPE_ListType>()->reserve(columns_.size());
    record(list);
    return list;
}

IPE_Object FSI_ReaderTable::recordAsDict() {
    IPE_Object dict = IPE_NewDict();
    record(dict);
    return dict;
}

IPE_Object FSI_ReaderTable::fieldsAsDict() {
    IPE_Object dict = IPE_NewDict();
    for (size_t i = 0; i < std::min(keys_.size(), meta().fields.size()); ++i)
        dict.as<IPE_DictType>()->set(keys_[i], asObject(static_cast<int64_t>(i)));
    return dict;
}

IPE_Object FSI_ReaderTable::batch(int64_t most) {
    IPE_Object list = IPE_NewList();
    if (most < 1) return list;
    if (position() == 0) next();
    for (; most > 0 && position() <= rows(); --most, next()) list.as<IPE_ListType>()->append(recordAsList());
    return list;
}
