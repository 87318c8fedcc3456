// What the tests of all types share: the pieces of the query that they read, and small numbers and texts.
#include "store/filters/smf_fieldfilter.h"

#include "ipe/values/ipe_codepoints.h"
#include "ipe/values/ipe_tokensource.h"
#include "platform/pf_locale.h"
#include "runtime/xpk_exception.h"

SMF_FieldFilter::SMF_FieldFilter(const SMF_FilterScope& scope, int32_t index)
    : scope_(scope), recordMeta_(scope.record.meta()), meta_(recordMeta_.fields[static_cast<size_t>(index)]) {
    // A handle that connects to a writer declares a field there.
    XPK_Assert(!scope.record.isWriter());
}

SMF_FieldFilter::~SMF_FieldFilter() = default;

void SMF_FieldFilter::connectOther(SMF_FieldHandle& handle, IPE_TokenSource& tokens) const {
    SMF_ConnectField(handle, scope_.record, tokens);
}

void SMF_FieldFilter::expecting(IPE_TokenSource& tokens, std::string_view what) {
    tokens.syntaxError("Expecting " + std::string(what));
}

// --- Pieces of the query.

namespace {

struct Word {
    const char* text;
    SMF_Comparison comparison;
};
constexpr Word ComparisonWords[] = {
    {"eq", SMF_Comparison::Equal},     {"ne", SMF_Comparison::NotEqual}, {"lt", SMF_Comparison::Less},
    {"le", SMF_Comparison::LessEqual}, {"gt", SMF_Comparison::Greater},  {"ge", SMF_Comparison::GreaterEqual},
};

bool isKeyword(uint8_t kind) { return kind >= TOKEN_DEF && kind <= TOKEN_AS; }

std::optional<SMF_Comparison> comparisonAt(IPE_TokenSource& tokens, bool words) {
    switch (tokens.kind()) {
        case TOKEN_ASSIGN:
        case TOKEN_EQ: return SMF_Comparison::Equal;
        case TOKEN_NE: return SMF_Comparison::NotEqual;
        case TOKEN_LT: return SMF_Comparison::Less;
        case TOKEN_LE: return SMF_Comparison::LessEqual;
        case TOKEN_GT: return SMF_Comparison::Greater;
        case TOKEN_GE: return SMF_Comparison::GreaterEqual;
        case TOKEN_IDENTIFIER:
            if (words)
                for (const Word& word : ComparisonWords)
                    if (tokens.getTokenText() == word.text) return word.comparison;
            return {};
        default: return {};
    }
}

}  // namespace

std::optional<SMF_Comparison> SMF_TakeComparison(IPE_TokenSource& tokens, bool words) {
    std::optional<SMF_Comparison> comparison = comparisonAt(tokens, words);
    if (comparison) tokens.next();
    return comparison;
}

bool SMF_AtWord(IPE_TokenSource& tokens, std::string_view word) {
    return (tokens.kind() == TOKEN_IDENTIFIER || isKeyword(tokens.kind())) && tokens.getTokenText() == word;
}

bool SMF_TakeWord(IPE_TokenSource& tokens, std::string_view word) {
    if (!SMF_AtWord(tokens, word)) return false;
    tokens.next();
    return true;
}

std::string SMF_NameAt(IPE_TokenSource& tokens) {
    switch (tokens.kind()) {
        case TOKEN_IDENTIFIER:
        case TOKEN_STRING:
        case TOKEN_NUMBER:
        case TOKEN_NULL:
        case TOKEN_TRUE:
        case TOKEN_FALSE: return tokens.getTokenText();
        default: return isKeyword(tokens.kind()) ? tokens.getTokenText() : std::string();
    }
}

void SMF_TakeNames(IPE_TokenSource& tokens, const std::function<void(const std::string&)>& each) {
    if (tokens.kind() != TOKEN_LBRACKET) {
        each(SMF_NameAt(tokens));
        tokens.next();
        return;
    }
    tokens.next();
    while (tokens.kind() != TOKEN_RBRACKET) {
        each(SMF_NameAt(tokens));
        tokens.next();
        if (tokens.kind() != TOKEN_COMMA) break;
        tokens.next();
    }
    tokens.expect(TOKEN_RBRACKET);
}

SMF_Quantity SMF_TakeQuantity(IPE_TokenSource& tokens) {
    SMF_Quantity quantity;
    quantity.number = tokens.getTokenText();
    tokens.next();
    if (tokens.kind() == TOKEN_IDENTIFIER) {
        quantity.unit = tokens.getTokenText();
        tokens.next();
    }
    // The scanner takes the first letter of "3days" for the mark of an exponent.
    if (char last = quantity.number.back(); last == 'd' || last == 'D') {
        quantity.unit.insert(0, 1, last);
        quantity.number.pop_back();
    }
    return quantity;
}

void SMF_ConnectField(SMF_FieldHandle& handle, SMF_Record& record, IPE_TokenSource& tokens) {
    std::string name = tokens.getTokenText();
    record.fieldIndex(name);
    handle.connect(record, name);
    tokens.next();
}

// --- Values.

int64_t SMF_SaturatingAdd(int64_t a, int64_t b) noexcept {
    int64_t sum;
    if (!__builtin_add_overflow(a, b, &sum)) return sum;
    return a < 0 ? INT64_MIN : INT64_MAX;
}

int64_t SMF_SaturatingMultiply(int64_t a, int64_t b) noexcept {
    int64_t product;
    if (!__builtin_mul_overflow(a, b, &product)) return product;
    return (a < 0) == (b < 0) ? INT64_MAX : INT64_MIN;
}

int64_t SMF_DecimalOf(std::string_view text) noexcept {
    int64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') break;
        value = SMF_SaturatingAdd(SMF_SaturatingMultiply(value, 10), c - '0');
    }
    return value;
}

bool SMF_SameWord(std::string_view a, std::string_view b) noexcept {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : +c; };
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (lower(a[i]) != lower(b[i])) return false;
    return true;
}

std::string_view SMF_Fold(std::string_view text, std::string& buffer) {
    if (!IPE_IsAscii(text)) {
        XPK_ThrowSystemError("LCMapString", platform::toLower(0, text, buffer));
        return buffer;
    }
    size_t upper = 0;
    while (upper < text.size() && !(text[upper] >= 'A' && text[upper] <= 'Z')) ++upper;
    if (upper == text.size()) return text;
    buffer.assign(text);
    for (char& c : buffer)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return buffer;
}
