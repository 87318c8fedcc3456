// Column: a field of a table that is being written, set some hundred thousand times a second.
//
// Declared before the table is created, and set after that. The checks of a handle are made at the first
// value alone: nobody adds fields to a census's tables once they are there.
#pragma once

#include "store/fields/smf_datetimefield.h"
#include "store/fields/smf_i32field.h"
#include "store/fields/smf_i64field.h"
#include "store/fields/smf_stringfield.h"
#include "store/smf_writer.h"

namespace quillscan {

template <class Handle, class Field>
class Column {
  public:
    // `format`: the letters of the codecs wanted.
    void connect(SMF_WriterTable& table, const char* name, const char* format) {
        handle_.connect(table, name, format);
    }
    template <class Value>
    void set(const Value& value) {
        if (!field_) [[unlikely]]
            field_ = &static_cast<Field&>(handle_.field());
        if constexpr (requires { field_->set(value); })
            field_->set(value);
        else
            field_->assignText(value);
    }

  private:
    Handle handle_;
    Field* field_ = nullptr;
};

using I32Column = Column<SMF_I32, SMF_I32Field>;
using I64Column = Column<SMF_I64, SMF_I64Field>;
using TextColumn = Column<SMF_String, SMF_StringField>;
using MomentColumn = Column<SMF_DateTime, SMF_DateTimeField>;

}  // namespace quillscan
