// A column as a number. Stored numbers come straight from their decoder; what an index or another table holds
// comes by plan.
#include "census/reports/fsi_measure.h"

#include "ipe/values/ipe_numbers.h"

FSI_Measure::FSI_Measure(FSI_ReaderTable& table, std::string_view column)
    : table_(table), index_(table.meta().indexOf(column, true)) {
    if (table.plan(index_).kind != FSI_PlanStored) return;
    const SMF_FieldMeta& field = *table.meta().fields[static_cast<size_t>(index_)];
    if (field.type == SMF_TypeI64)
        wide_.connect(table, field.name);
    else if (field.type == SMF_TypeI32)
        narrow_.connect(table, field.name);
}

int64_t FSI_Measure::planned() {
    IPE_Object value = table_.value(index_);
    XPK_Assert(value.is<IPE_IntType>());
    return value->__int__();
}
