// Batches of rows.
//
// A statement may keep what it was given, so every batch is a list of its own. Tuples that nobody kept are
// filled again: their old values go as the new ones come, which the allocator serves out of what is at hand.
#include "census/reports/fsi_rowbatch.h"

#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"

FSI_RowBatch::FSI_RowBatch(const IPE_Object& statement, std::string_view sql, size_t limit)
    : statement_(statement), sql_(IPE_String(sql)), rows_(IPE_NewList()), limit_(limit) {}

IPE_Object FSI_RowBatch::newRow(size_t size) {
    if (!spare_.empty()) {
        IPE_Object used = std::move(spare_.back());
        spare_.pop_back();
        auto* tuple = used.as<IPE_TupleType>();
        if (tuple->references() == 1 && !tuple->isCleared()) {
            tuple->items().clear();
            return used;
        }
    }
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
    auto* list = rows.as<IPE_ListType>();
    if (list->references() == 1 && !list->isCleared()) spare_ = std::move(list->items());
}
