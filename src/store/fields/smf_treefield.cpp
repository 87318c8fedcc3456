// Trees.
#include "store/fields/smf_treefield.h"

#include <algorithm>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"

namespace {

[[noreturn]] void tooDeep() {
    XPK_Raise("RuntimeError", "Branch is too deep for SMF_TreeField to store").raise();
}

// The components in the order in which they are shown, joined.
void join(std::span<const std::string_view> parts, const SMF_TreeData& data, std::string& out) {
    out.clear();
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) out += data.separator;
        out += parts[data.reversed ? i : parts.size() - 1 - i];
    }
}

}  // namespace

SMF_TreeData::SMF_TreeData(const SMF_FieldMeta& meta)
    : separator(meta.tagText("S", "\\")), reversed(meta.tagText("R", "F") == "T") {}

void SMF_TreeData::exportTo(IPE_DictType& dictionary) const {
    dictionary.setText("R", IPE_String("T"));
    dictionary.setText("S", IPE_String("."));
}

SMF_TreeField::SMF_TreeField(std::shared_ptr<SMF_FieldMeta> meta, SMF_RecordData& record)
    : SMF_Field(std::move(meta), record) {
    if (!meta_->data) meta_->data = std::make_shared<SMF_TreeData>(*meta_);
}

void SMF_TreeField::clear() {
    buffer_.clear();
    views_.clear();
}

void SMF_TreeField::assignParts(std::span<const std::string_view> parts) {
    if (parts.size() > MostComponents) tooDeep();
    clear();
    size_t size = 0;
    for (std::string_view part : parts) size += part.size();
    buffer_.reserve(size);
    for (std::string_view part : parts) {
        views_.emplace_back(buffer_.data() + buffer_.size(), part.size());
        buffer_ += part;
    }
}

void SMF_TreeField::loadRow(int64_t row) {
    auto& decoder = static_cast<SMF_TreeDecoder&>(*meta_->decoder);
    if (!decoder.batch().contains(row - 1)) decoder.load(row);
    const SMF_TreeValue& value = decoder.batch().values[row - 1 - decoder.batch().first];
    assignParts({value.parts, value.count});
}

std::span<const std::string_view> SMF_TreeField::parts() {
    if (isFixed()) {
        if (!fixed_) fixed_ = std::make_unique<SMF_TreeField>(meta_, record_);
        if (fixedValue().is<IPE_ListType>())
            fixed_->assignObject(fixedValue());
        else
            fixed_->assignText(IPE_Object_Text(fixedValue()));
        return fixed_->views_;
    }
    load();
    return views_;
}

IPE_Object SMF_TreeField::asObject() {
    if (isFixed()) return fixedValue();
    load();
    IPE_Object list = IPE_NewList();
    auto* items = list.as<IPE_ListType>();
    items->reserve(views_.size());
    for (size_t i = 0; i < views_.size(); ++i)
        items->append(IPE_String(views_[data().reversed ? i : views_.size() - 1 - i]));
    return list;
}

std::string SMF_TreeField::asText() {
    if (isFixed()) return IPE_Object_Text(fixedValue());
    load();
    std::string text;
    join(views_, data(), text);
    return text;
}

void SMF_TreeField::assignText(std::string_view utf8) {
    std::vector<std::string_view> parts;
    for (;;) {
        size_t end = std::min(utf8.find('.'), utf8.size());
        if (parts.size() == MostComponents) tooDeep();
        parts.push_back(utf8.substr(0, end));
        if (end == utf8.size()) break;
        utf8.remove_prefix(end + 1);
    }
    assignParts(parts);
}

void SMF_TreeField::assignObject(const IPE_Object& value) {
    IPE_ListType* list = PyList_SafeCast(value);
    if (list->count() > static_cast<int32_t>(MostComponents)) tooDeep();
    std::vector<std::string> texts;
    for (int32_t i = 0; i < list->count(); ++i) {
        IPE_Object item = list->at(i);  // its text form may be a script's, which may change the list
        texts.push_back(IPE_Object_Text(item));
    }
    std::vector<std::string_view> parts(texts.begin(), texts.end());
    assignParts(parts);
}

// --- The handle.

void SMF_Tree::attached() { decoder_ = static_cast<SMF_TreeDecoder*>(plainDecoder()); }

std::span<const std::string_view> SMF_Tree::get() const {
    if (!decoder_ || !loadable()) return static_cast<SMF_TreeField&>(field()).parts();
    const auto& batch = decoder_->batch();
    int64_t row = data_->loadRow - 1;
    if (!batch.contains(row)) decoder_->load(row + 1);
    const SMF_TreeValue& value = batch.values[row - batch.first];
    return {value.parts, value.count};
}

std::span<const SMF_TreeValue> SMF_Tree::span(size_t limit) const {
    if (!decoder_ || !loadable()) return {};
    const auto& batch = decoder_->batch();
    int64_t row = data_->loadRow - 1;
    if (!batch.contains(row)) decoder_->load(row + 1);
    auto skip = static_cast<size_t>(row - batch.first);
    return {batch.values + skip, std::min(limit, batch.count - skip)};
}

std::string_view SMF_Tree::text() const {
    auto& tree = static_cast<SMF_TreeField&>(field());
    if (decoder_)
        join(get(), tree.data(), text_);
    else
        text_ = tree.asText();
    return text_;
}

void SMF_Tree::set(std::string_view text) const { field().assignText(text); }

namespace {
const SMF_FieldRegistration registered(SMF_TypeTree, SMF_MakeFieldOf<SMF_TreeField>);
}  // namespace
