// FSI_DateColumn: the day of a column that holds dates, or dates with times.
#pragma once

#include <string_view>

#include "census/fsi_readertable.h"
#include "store/fields/smf_datefield.h"
#include "store/fields/smf_datetimefield.h"

class FSI_DateColumn {
  public:
    // DatabaseError "$field is not a property on $table objects."; a column of another type raises "Incorrect
    // field type, expecting $expecting, actual $actual".
    void connect(FSI_ReaderTable& table, std::string_view column) {
        const SMF_FieldMeta& field = *table.meta().fields[static_cast<size_t>(table.fieldIndex(column))];
        if (field.type == SMF_TypeDate)
            day_.connect(table, field.name);
        else
            moment_.connect(table, field.name);
    }
    // Of the table's current row.
    SMF_DateValue get() const { return moment_.isConnected() ? moment_.date() : day_.get(); }
    // As SMF_HandleOf::span.
    std::span<const SMF_DateValue> span(size_t limit) const {
        return moment_.isConnected() ? moment_.dates(limit) : day_.span(limit);
    }

  private:
    SMF_DateTime moment_;
    SMF_Date day_;
};
