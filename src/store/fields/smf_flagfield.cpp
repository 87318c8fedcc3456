// Flags.
//
// In old files the tags do not hold the names but label identifiers, one pair of tags a flag.
#include "store/fields/smf_flagfield.h"

#include <algorithm>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "runtime/epa_string.h"
#include "store/smf_labels.h"

namespace {

constexpr size_t MostBytes = sizeof(SMF_FlagValue::bytes);
constexpr int64_t MostFlags = int64_t{MostBytes} * 8;

// The names between separators; a separator at the end makes no empty last name.
std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        size_t end = std::min(text.find(separator), text.size());
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

std::string label(const SMF_FieldMeta& meta, char letter, int64_t index) {
    std::string text = meta.tagText(letter + std::to_string(index) + ".");
    return std::string(SMF_LabelText(SMF_LabelIdentifier(text)));
}

}  // namespace

SMF_FlagData::SMF_FlagData(const SMF_FieldMeta& meta) {
    size_t count;
    if (meta.hasTag("SN")) {
        shortNames = split(meta.tagText("SN"), ';');
        longNames = split(meta.tagText("LN"), ';');
        count = shortNames.size();
    } else {
        count = static_cast<size_t>(std::clamp<int64_t>(EPA_String(meta.tagText("C")).toInt(), 0, MostFlags));
        for (size_t i = 0; i < count; ++i) {
            shortNames.push_back(label(meta, 'S', static_cast<int64_t>(i)));
            longNames.push_back(label(meta, 'L', static_cast<int64_t>(i)));
        }
    }
    bytes = static_cast<int>(std::min((count + 1) / 8 + 1, MostBytes));
}

void SMF_FlagData::exportTo(IPE_DictType& dictionary) const {
    IPE_Object names = IPE_NewList();
    for (const std::string& name : shortNames) names.as<IPE_ListType>()->append(IPE_String(name));
    dictionary.setText("shortdecode", std::move(names));
}

SMF_FlagField::SMF_FlagField(std::shared_ptr<SMF_FieldMeta> meta, SMF_RecordData& record)
    : SMF_FieldOf(std::move(meta), record) {
    if (!meta_->data) meta_->data = std::make_shared<SMF_FlagData>(*meta_);
}

const SMF_FlagValue& SMF_FlagField::get() {
    if (isFixed()) return readFixed(value_, fixed_);
    load();
    return value_;
}

IPE_Object SMF_FlagField::asObject() {
    if (isFixed()) return fixedValue();
    load();
    std::string text;
    const std::vector<std::string>& names = data().shortNames;
    for (size_t i = 0; i < size_t{MostFlags}; ++i) {
        if (!value_.bit(static_cast<int>(i))) continue;
        if (i >= names.size()) XPK_Raise("IndexError", "list index out of range").raise();
        if (!text.empty()) text += ',';
        text += names[i];
    }
    return IPE_String(text);
}

void SMF_FlagField::assignText(std::string_view utf8) {
    value_ = {};
    const std::vector<std::string>& names = data().shortNames;
    size_t most = std::min(names.size(), static_cast<size_t>(data().bytes) * 8);
    for (const std::string& token : split(utf8, ','))
        for (size_t i = 0; i < most; ++i)
            if (names[i] == token) value_.set(static_cast<int>(i));
}

void SMF_FlagField::assignObject(const IPE_Object& value) { assignText(IPE_Object_Text(value)); }

namespace {
const SMF_FieldRegistration registered(SMF_TypeFlag, SMF_MakeFieldOf<SMF_FlagField>);
}  // namespace
