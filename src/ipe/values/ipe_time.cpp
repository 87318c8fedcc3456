// The time rule: what a script may pass where a moment is wanted, as seconds since 1970 (local time fields).
//
// A field of a packed text is read as far as it has digits; fields that are no date are brought into range by
// mktime, whose failure gives 0, "no time".
#include <ctime>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

int64_t fromFields(const int64_t (&fields)[6]) {
    for (int64_t field : fields)
        if (field > 1000000000 || field < -1000000000) return 0;
    tm parts{};
    parts.tm_year = static_cast<int>(fields[0] - 1900);
    parts.tm_mon = static_cast<int>(fields[1] - 1);
    parts.tm_mday = static_cast<int>(fields[2]);
    parts.tm_hour = static_cast<int>(fields[3]);
    parts.tm_min = static_cast<int>(fields[4]);
    parts.tm_sec = static_cast<int>(fields[5]);
    parts.tm_isdst = -1;
    time_t moment = mktime(&parts);
    return moment == -1 ? 0 : moment;
}

int64_t digitsAt(std::string_view text, size_t begin, size_t size) {
    int64_t value = 0;
    for (size_t i = begin; i < begin + size && text[i] >= '0' && text[i] <= '9'; ++i)
        value = value * 10 + (text[i] - '0');
    return value;
}

int64_t fromText(std::string_view text) {
    text = text.substr(0, text.find('.'));
    size_t month = 0, step = 0;
    switch (text.size()) {
        case 0: return 0;
        case 8:
        case 14: month = 4, step = 2; break;
        case 10:
        case 19: month = 5, step = 3; break;
        default: XPK_Raise("ValueError", "Packed date passed to maketime() is not in a known format").raise();
    }
    int64_t fields[6] = {digitsAt(text, 0, 4), 0, 0, 0, 0, 0};
    size_t count = text.size() > 10 ? 6 : 3;
    for (size_t i = 1; i < count; ++i) fields[i] = digitsAt(text, month + (i - 1) * step, 2);
    return fromFields(fields);
}

[[noreturn]] void unusable(const IPE_Object& value) {
    XPK_Raise("RuntimeException", "maketime failed to convert $value")
        .string("value", IPE_Object_Text(value))
        .raise();
}

}  // namespace

int64_t IPE_TimeOf(const IPE_Object& value) {
    if (value.isNull() || value.is<IPE_NoneType>()) return 0;
    if (auto* number = value.tryAs<IPE_IntType>()) return number->value;
    if (auto* text = value.tryAs<IPE_StringType>()) return fromText(text->view());
    if (!value.is<IPE_ListType>() && !value.is<IPE_TupleType>()) unusable(value);
    auto* sequence = value.as<IPE_SequenceType>();
    if (sequence->count() < 2) unusable(value);
    int64_t fields[6] = {0, 0, 1, 0, 0, 0};
    for (int32_t i = 0; i < 6 && i < sequence->count(); ++i) {
        IPE_Object field = sequence->at(i);
        fields[i] = field->__int__();
    }
    return fromFields(fields);
}
