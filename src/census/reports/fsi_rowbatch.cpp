// Batches of rows. Every batch is a list of its own, since a statement may keep what it was given.
#include "census/reports/fsi_rowbatch.h"

#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"

FSI_RowBatch::FSI_RowBatch(const IPE_Object& statement, std::string_view sql, size_t limit)
    : statement_(statement), sql_(IPE_String(sql)), rows_(IPE_NewList()), limit_(limit) {}

IPE_Object FSI_RowBatch::newRow(size_t size) {
    IPE_Object row = IPE_NewTuple();
    row.as<IPE_TupleType>()->reserve(size);
    return row;
}

void FSI_RowBatch::append(const IPE_Object& row, IPE_Object value) {
    row.as<IPE_TupleType>()->append(std::move(value));
}

void FSI_RowBatch::take(IPE_Object row) {
    rows_.as<IPE_ListType>()->append(std::move(row));
    if (rows_.as<IPE_ListType>()->items().size() > limit_) pass();
}

void FSI_RowBatch::flush(bool always) {
    if (rows_.as<IPE_ListType>()->count() > 0 || (always && !passed_)) pass();
    passed_ = false;
}

void FSI_RowBatch::pass() {
    IPE_Object rows = std::exchange(rows_, IPE_NewList());
    passed_ = true;
    IPE_CallScript(statement_, sql_, rows);
}
