// Records in columns.
#include "store/smf_rowbuffer.h"

#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_datetimefield.h"

void SMF_RowBuffer::flush() {
    if (count_ > 0) table_.commitRows(columns_, std::exchange(count_, 0));
}

void SMF_BufferColumn::connect(SMF_RowBuffer& rows, std::string_view name, int32_t type,
                               const IPE_Object& tags) {
    int32_t index = rows.table_.addField(name, type, tags);
    XPK_Assert(static_cast<size_t>(index) == rows.columns_.size());
    rows.columns_.push_back(this);
    rows_ = &rows;
}

void SMF_BufferColumn::connect(SMF_RowBuffer& rows, std::string_view name, int32_t type,
                               std::string_view format) {
    IPE_Object tags = IPE_NewDict();
    tags.as<IPE_DictType>()->setText("Format", IPE_String(format));
    connect(rows, name, type, tags);
}

void SMF_SecondsColumn::store(SMF_FieldEncoder& encoder, size_t count) {
    std::array<SMF_DateTimeValue, SMF_RowBuffer::Rows> values;
    for (size_t i = 0; i < count; ++i) {
        int64_t seconds = seconds_[i];
        if (i > 0 && seconds == seconds_[i - 1])
            values[i] = values[i - 1];
        else if (seconds == 0 || !SMF_LocalMoment(seconds, values[i].date, values[i].time))
            values[i] = {};
    }
    static_cast<SMF_EncoderOf<SMF_DateTimeValue>&>(encoder).storeRows({values.data(), count});
}

void SMF_TextColumn::store(SMF_FieldEncoder& encoder, size_t count) {
    std::array<std::string_view, SMF_RowBuffer::Rows> texts;
    size_t start = 0;
    for (size_t i = 0; i < count; ++i) {
        texts[i] = {text_.data() + start, ends_[i] - start};
        start = ends_[i];
    }
    static_cast<SMF_EncoderOf<std::string_view>&>(encoder).storeRows({texts.data(), count});
}
