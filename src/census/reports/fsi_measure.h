// FSI_Measure: an integer column of a table, chosen by name at run time, as a number for each row.
#pragma once

#include <cstdint>
#include <string_view>

#include "census/fsi_readertable.h"
#include "store/fields/smf_i32field.h"
#include "store/fields/smf_i64field.h"

class FSI_Measure {
  public:
    // DatabaseError "$field is not a property on $table objects.".
    FSI_Measure(FSI_ReaderTable& table, std::string_view column);

    // Of the table's current row. A value that is no integer is an assertion.
    int64_t get() {
        if (wide_.isConnected()) [[likely]]
            return wide_.get();
        return narrow_.isConnected() ? narrow_.get() : planned();
    }

  private:
    int64_t planned();

    FSI_ReaderTable& table_;
    int32_t index_;
    SMF_I64 wide_;
    SMF_I32 narrow_;
};
