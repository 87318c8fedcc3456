// Tests of texts.
//
// A value that is one symbol of its decoder, as all values of a dictionary column are, has its answer kept by
// symbol. So has the part behind the last dot when the symbol holds that dot: a file name's extension.
#include "store/filters/smf_stringfilter.h"

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_literal.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_tokensource.h"
#include "runtime/xpk_exception.h"
#include "store/filters/smf_recordfilter.h"
#include "store/filters/smf_textmatcher.h"

SMF_StringFilter::SMF_StringFilter(const SMF_FilterScope& scope, int32_t index)
    : SMF_FieldFilter(scope, index) {
    value_.connect(scope.record, meta_->name);
}

SMF_StringFilter::~SMF_StringFilter() = default;

// --- Reading.

bool SMF_StringFilter::parse(IPE_TokenSource& tokens, std::string_view name, int depth) {
    if (!parseOptions(tokens)) {
        measures_ = true;
        return true;
    }
    bool membership = tokens.kind() == TOKEN_IN || tokens.kind() == TOKEN_LBRACKET;
    if (membership) {
        if (tokens.kind() == TOKEN_IN) tokens.next();
        parseMembers(tokens);
        return true;
    }
    notEqual_ = tokens.kind() == TOKEN_NE || SMF_AtWord(tokens, "ne");
    if (!notEqual_ && tokens.kind() != TOKEN_ASSIGN && tokens.kind() != TOKEN_EQ && !SMF_AtWord(tokens, "eq"))
        expecting(tokens, "an operator");
    tokens.next();
    parseMatch(tokens);
    return true;
}

// False for a length test, which has nothing behind it.
bool SMF_StringFilter::parseOptions(IPE_TokenSource& tokens) {
    for (;;) {
        uint8_t kind = tokens.kind();
        if (kind != TOKEN_DOT && kind != TOKEN_AT && kind != TOKEN_COMMA && kind != TOKEN_PLUS) return true;
        tokens.next();
        if (kind == TOKEN_DOT) {
            if (!SMF_TakeWord(tokens, "end")) expecting(tokens, "end");
            end_ = true;
        } else if (kind == TOKEN_AT) {
            if (!SMF_TakeWord(tokens, "length")) expecting(tokens, "length");
            return false;
        } else if (kind == TOKEN_PLUS) {
            if (tokens.kind() != TOKEN_NUMBER) expecting(tokens, "a number");
            skip_ = static_cast<size_t>(SMF_DecimalOf(tokens.getTokenText()));
            tokens.next();
        } else if (SMF_TakeWord(tokens, "tail")) {
            tail_ = true;
        } else {
            ignoreCase_ = SMF_AtWord(tokens, "ci");
            if (!ignoreCase_ && !SMF_AtWord(tokens, "ce")) expecting(tokens, "ce, ci or tail");
            tokens.next();
        }
    }
}

// A backslash and an E in the text would end the quotation.
std::string SMF_StringFilter::quoted(std::string_view text) const {
    std::string buffer, out = "\\Q";
    std::string_view rest = ignoreCase_ ? SMF_Fold(text, buffer) : text;
    for (size_t at; (at = rest.find("\\E")) != std::string_view::npos; rest.remove_prefix(at + 2))
        out.append(rest.substr(0, at)).append("\\E\\\\E\\Q");
    return out.append(rest).append("\\E");
}

void SMF_StringFilter::parseMatch(IPE_TokenSource& tokens) {
    if (tokens.kind() == TOKEN_STRING) {
        matcher_ = std::make_unique<SMF_TextMatcher>(tokens.getTokenText(), ignoreCase_);
        tokens.next();
        return;
    }
    if (tokens.kind() != TOKEN_AT) expecting(tokens, "a string");
    IPE_Object answer = callContext(tokens);
    std::string pattern;
    if (answer.is<IPE_StringType>()) {
        pattern = quoted(answer.as<IPE_StringType>()->view());
    } else {
        for (const IPE_Object& item : answer.as<IPE_SequenceType>()->items())
            pattern.append(pattern.empty() ? "(" : "|").append(quoted(IPE_Object_Text(item)));
        if (pattern.empty()) pattern += "(";
        pattern += ")";
    }
    matcher_ = std::make_unique<SMF_TextMatcher>(pattern, ignoreCase_, true);
}

void SMF_StringFilter::parseMembers(IPE_TokenSource& tokens) {
    IPE_Object items = tokens.kind() == TOKEN_AT ? callContext(tokens) : IPE_ReadLiteral(tokens);
    if (items.is<IPE_StringType>()) items = IPE_ListOf({items});
    if (!items.is<IPE_ListType>() && !items.is<IPE_TupleType>()) expecting(tokens, "a list");
    std::string buffer;
    for (const IPE_Object& item : items.as<IPE_SequenceType>()->items()) {
        std::string text = IPE_Object_Text(item);
        members_.emplace(ignoreCase_ ? SMF_Fold(text, buffer) : text);
    }
}

// `@`, a name and the arguments; the answer is a string, a list or a tuple.
IPE_Object SMF_StringFilter::callContext(IPE_TokenSource& tokens) {
    tokens.next();
    std::string name = SMF_NameAt(tokens);
    if (name.empty()) expecting(tokens, "a name");
    tokens.next();
    IPE_Object literal = IPE_ReadLiteral(tokens);
    XPK_Assert(scope_.context != nullptr);
    std::vector<IPE_Object> arguments{literal};
    if (literal.is<IPE_ListType>() || literal.is<IPE_TupleType>())
        arguments = literal.as<IPE_SequenceType>()->items();
    IPE_Object answer = scope_.context->apiCall(name, arguments);
    if (answer.isNull() ||
        (!answer.is<IPE_StringType>() && !answer.is<IPE_ListType>() && !answer.is<IPE_TupleType>()))
        expecting(tokens, "a string or a list from " + name);
    return answer;
}

// --- Running.

std::string_view SMF_StringFilter::reduce(std::string_view text) const {
    if (end_)
        if (size_t dot = text.rfind('.'); dot != std::string_view::npos) text.remove_prefix(dot + 1);
    if (tail_)
        if (size_t slash = text.rfind('/'); slash != std::string_view::npos) text.remove_prefix(slash + 1);
    text.remove_prefix(std::min(skip_, text.size()));
    return text;
}

bool SMF_StringFilter::test(std::string_view text) {
    text = reduce(text);
    if (matcher_) return matcher_->matches(text) != notEqual_;
    return members_.contains(ignoreCase_ ? SMF_Fold(text, folded_) : text);
}

const SMF_TextValue* SMF_StringFilter::located() const {
    SMF_StringDecoder* decoder = value_.decoder();
    int64_t row = value_.row();
    if (!decoder || row <= 0) return nullptr;
    const auto& batch = decoder->batch();
    if (!batch.contains(row - 1)) decoder->load(row);
    return &batch.values[row - 1 - batch.first];
}

void SMF_StringFilter::measure() {
    const SMF_TextValue* value = located();
    size_t bytes =
        value ? value->length + value_.decoder()->symbol(value->symbol).size() : value_.get().size();
    SMF_Accumulator() += static_cast<int64_t>(bytes);
}

void SMF_StringFilter::evaluate(bool& result) {
    if (measures_) {
        measure();
        return;
    }
    if (const SMF_TextValue* value = located()) {
        SMF_StringDecoder& decoder = *value_.decoder();
        std::string_view symbol = decoder.symbol(value->symbol);
        if (value->length == 0 || (end_ && symbol.find('.') != std::string_view::npos)) {
            answers_.follow(decoder);
            uint8_t& answer = answers_[value->symbol];
            if (answer == 0) answer = test(symbol) ? 2 : 1;
            result = answer == 2;
            return;
        }
    }
    if (!matcher_)
        result = test(value_.get());
    else if (!end_ && !tail_ && skip_ == 0)
        result = matcher_->matches(value_) != notEqual_;
    else if (!matcher_->mayFind(value_))
        result = matcher_->isInverted() != notEqual_;
    else
        result = test(value_.get());
}
