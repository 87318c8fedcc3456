// Groups of rows.
//
// The expression runs on raw bytes, and mostly once for each symbol. Lower case is that of the language, made
// once for each spelling while the table of spellings is small. With a transform every row calls the script,
// which may count.
#include "census/reports/fsi_rowgroups.h"

#include "census/reports/fsi_extensionpattern.h"
#include "ipe/engines/ipe_lua.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

std::unique_ptr<SMF_TextMatcher> compile(const std::string& expression) {
    try {
        return std::make_unique<SMF_TextMatcher>(expression, false, true);
    } catch (const XPK_Exception& e) {
        if (e.type() != "InvalidRegularExpressionException") throw;
        XPK_Raise("RuntimeError", "Error compiling regular expression: $errmsg")
            .string("errmsg", e.message())
            .raise();
    }
}

// A transform may cut a text within a character; such bytes keep their case.
std::string lowerOf(const std::string& text) {
    try {
        return std::string(IPE_String(text).as<IPE_StringType>()->lower().as<IPE_StringType>()->view());
    } catch (const XPK_Exception& e) {
        if (e.type() != "UnicodeError") throw;
        std::string out = text;
        for (char& c : out)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        return out;
    }
}

}  // namespace

FSI_RowGroups::FSI_RowGroups(FSI_ReaderTable& table, const Rules& rules)
    : table_(table),
      matcher_(compile(rules.expression)),
      absent_(rules.absent),
      transform_(rules.transform),
      onlyExtension_(FSI_IsExtensionPattern(rules.expression)),
      index_(table.fieldIndex(rules.column)) {
    for (const std::string& column : rules.columns) columns_.push_back(table.fieldIndex(column));
    for (int32_t column : columns_) table.plan(column);
    const SMF_FieldMeta& field = *table.meta().fields[static_cast<size_t>(index_)];
    if (table.plan(index_).kind != FSI_PlanStored) {
        number_.connect(table, field.name);
        byNumber_ = true;
    } else if (SMF_SameType(field.type, SMF_TypeString) && field.transform == SMF_Transform::None &&
               field.api.isNull()) {
        text_.connect(table, field.name);
    }
}

void FSI_RowGroups::clear() {
    epoch_ = 0;
    spelled_.clear();
    groups_.clear();
    numbers_.clear();
    names_.clear();
}

uint32_t FSI_RowGroups::ofRow() {
    if (SMF_StringDecoder* decoder = text_.decoder(); decoder && text_.row() > 0) [[likely]] {
        const SMF_TextValue& value = text_.value();
        if (transform_.isNull()) {
            Symbol& found = symbol(*decoder, value.symbol);
            if (value.length == 0 || found.decides) {
                if (found.group == Unknown) found.group = ofText(decoder->symbol(value.symbol));
                return found.group;
            }
        }
        return matcher_->mayFind(text_) ? ofText(text_.get()) : ofValue({}, false);
    }
    if (byNumber_ && transform_.isNull()) return ofNumber();
    if (text_.isConnected()) return ofText(text_.get());
    return ofText(IPE_Object_Text(table_.value(index_)));
}

FSI_RowGroups::Symbol& FSI_RowGroups::symbol(SMF_StringDecoder& decoder, uint32_t id) {
    if (decoder.symbolEpoch() != epoch_) [[unlikely]] {
        epoch_ = decoder.symbolEpoch();
        symbols_.clear();
    }
    if (id >= symbols_.size()) [[unlikely]] {
        for (size_t i = symbols_.size(); i < decoder.symbolCount(); ++i)
            symbols_.push_back(
                {Unknown, onlyExtension_ &&
                              decoder.symbol(static_cast<uint32_t>(i)).find('.') != std::string_view::npos});
    }
    return symbols_[id];
}

uint32_t FSI_RowGroups::ofNumber() {
    int64_t number = number_.as64();
    if (auto found = numbers_.find(number); found != numbers_.end()) return found->second;
    uint32_t group = ofText(IPE_Object_Text(table_.value(index_)));
    if (numbers_.size() >= MostKept) numbers_.clear();
    numbers_.emplace(number, group);
    return group;
}

uint32_t FSI_RowGroups::ofText(std::string_view text) {
    SMF_TextMatcher::Match match;
    bool matches = matcher_->find(text, match);
    return ofValue(match.hasGroup ? match.group : match.whole, matches);
}

uint32_t FSI_RowGroups::ofValue(std::string_view value, bool matches) {
    if (!matches) {
        if (!absent_) return None;
        value = *absent_;
    }
    return transform_.isNull() ? named(value) : transformed(value);
}

uint32_t FSI_RowGroups::transformed(std::string_view value) {
    std::vector<IPE_Object> values{IPE_String(value)};
    for (int32_t column : columns_) values.push_back(table_.value(column));
    IPE_Object tuple = IPE_NewTuple();
    tuple.as<IPE_TupleType>()->items() = std::move(values);
    transform_.as<IPE_LuaFunction>()->callAll(IPE_Arguments(&tuple, 1), results_);
    const IPE_Object& result = results_.empty() ? IPE_None() : results_.front();
    if (!result.is<IPE_StringType>() && !result.is<IPE_IntType>() && !result.is<IPE_FloatType>() &&
        !result.is<IPE_TrueType>() && !result.is<IPE_FalseType>())
        IPE_CastFailed(result, IPE_StringType::TypeName, "during");
    return named(IPE_Object_Text(result));
}

uint32_t FSI_RowGroups::named(std::string_view value) {
    key_.assign(value.substr(0, value.find('\0')));  // the texts of scripts end there
    if (auto found = spelled_.find(key_); found != spelled_.end()) return found->second;
    std::string name = lowerOf(key_);
    auto group = groups_.find(name);
    if (group == groups_.end()) {
        names_.push_back(std::move(name));
        group = groups_.emplace(names_.back(), static_cast<uint32_t>(names_.size() - 1)).first;
    }
    if (spelled_.size() >= MostKept) spelled_.clear();
    spelled_.emplace(key_, group->second);
    return group->second;
}
