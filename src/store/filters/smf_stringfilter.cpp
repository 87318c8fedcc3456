// Tests of texts.
//
// A value that is one symbol of its decoder, as all values of a dictionary column are, has its answer kept by
// symbol. So has the part behind the last dot when the symbol holds that dot: a file name's extension.
#include "store/filters/smf_stringfilter.h"

#include <algorithm>
#include <cstring>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_literal.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_tokensource.h"
#include "runtime/xpk_exception.h"
#include "store/filters/smf_recordfilter.h"
#include "store/filters/smf_textmatcher.h"

namespace {
constexpr uint8_t NotSearched = SMF_BatchSearch::Maybe;
}

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

// The answer for a value that is one symbol, kept with the symbol.
bool SMF_StringFilter::testSymbol(const SMF_StringDecoder& decoder, uint32_t symbol) {
    uint8_t& known = symbols_[symbol];
    if (!(known & Answered))
        known |= static_cast<uint8_t>(Answered | (test(decoder.symbol(symbol)) ? Passes : 0));
    return known & Passes;
}

// The engine finds a match in the symbol, and so in every text that ends with it.
bool SMF_StringFilter::matchesTail(const SMF_StringDecoder& decoder, uint32_t symbol) {
    if (symbol == 0) return false;
    uint8_t& known = symbols_[symbol];
    if (!(known & TailKnown))
        known |= static_cast<uint8_t>(TailKnown |
                                      (matcher_->matchesTail(decoder.symbol(symbol)) ? TailMatches : 0));
    return known & TailMatches;
}

// A value in its decoder, whose symbols are followed. `found` is what the matcher's search told of it,
// NotSearched without a search.
bool SMF_StringFilter::judge(const SMF_StringDecoder& decoder, const SMF_TextValue& value, uint8_t found) {
    if (found == SMF_BatchSearch::No) return matcher_->isInverted() != notEqual_;
    if (value.length == 0) return testSymbol(decoder, value.symbol);
    if (end_ && decoder.symbol(value.symbol).find('.') != std::string_view::npos)
        return testSymbol(decoder, value.symbol);
    if (matcher_ && !end_ && !tail_ && skip_ == 0) {
        bool sure = found == SMF_BatchSearch::Yes && matcher_->isSure();
        if (sure || matchesTail(decoder, value.symbol)) return matcher_->isInverted() == notEqual_;
    }
    text_.clear();
    decoder.appendText(value, text_);
    return test(text_);
}

void SMF_StringFilter::evaluate(bool& result) {
    if (measures_) {
        measure();
    } else if (const SMF_TextValue* value = located()) {
        SMF_StringDecoder& decoder = *value_.decoder();
        symbols_.follow(decoder);
        const uint8_t* found = matcher_ ? matcher_->look(decoder, value_.row()) : nullptr;
        result = judge(decoder, *value, found ? *found : NotSearched);
    } else {
        result = test(value_.get());
    }
}

size_t SMF_StringFilter::sift(uint8_t* keep, size_t limit) {
    const SMF_TextValue* values = located();
    if (!values) return 0;
    SMF_StringDecoder& decoder = *value_.decoder();
    const auto& batch = decoder.batch();
    size_t count = std::min(limit, batch.count - static_cast<size_t>(value_.row() - 1 - batch.first));
    symbols_.follow(decoder);
    const uint8_t* found = matcher_ ? matcher_->look(decoder, value_.row()) : nullptr;
    // Most rows hold no literal of the pattern.
    if (found && matcher_->isInverted() == notEqual_)
        for (size_t i = 0; i < count; ++i) keep[i] &= found[i] != SMF_BatchSearch::No;
    size_t i = 0;
    try {
        while (i < count) {
            const void* next = std::memchr(keep + i, 1, count - i);
            if (!next) break;
            i = static_cast<size_t>(static_cast<const uint8_t*>(next) - keep);
            keep[i] = judge(decoder, values[i], found ? found[i] : NotSearched);
            ++i;
        }
    } catch (...) {
        if (i == 0) throw;
        return i;
    }
    return count;
}
