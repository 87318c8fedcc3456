// Comparisons with a 64-bit number, as the query writes them.
#include "store/filters/smf_i64comparison.h"

#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_tokensource.h"

namespace {

struct Unit {
    const char* word;
    int64_t bytes;
};
constexpr Unit Units[] = {
    {"b", 1}, {"kb", 1024}, {"mb", 1048576}, {"gb", 1073741824}, {"tb", 1099511627776},
};

}  // namespace

void SMF_I64Comparison::parse(IPE_TokenSource& tokens, SMF_Record& record) {
    std::optional<SMF_Comparison> comparison = SMF_TakeComparison(tokens, true);
    if (!comparison) tokens.syntaxError("Expecting an operator");
    comparison_ = *comparison;
    if (tokens.kind() == TOKEN_IDENTIFIER)
        SMF_ConnectField(other_, record, tokens);
    else
        parseNumber(tokens);
}

// A number with decimals counts before its unit: 1.5gb.
void SMF_I64Comparison::parseNumber(IPE_TokenSource& tokens) {
    if (tokens.kind() != TOKEN_NUMBER) tokens.syntaxError("Expecting a number or a field");
    IPE_Object number = tokens.getNumber(false);
    tokens.next();
    int64_t bytes = 1;
    if (tokens.kind() == TOKEN_IDENTIFIER) {
        bytes = 0;
        for (const Unit& unit : Units)
            if (SMF_SameWord(tokens.getTokenText(), unit.word)) bytes = unit.bytes;
        if (bytes == 0) tokens.syntaxError("Expecting a unit");
        tokens.next();
    }
    if (auto* whole = number.tryAs<IPE_IntType>())
        number_ = SMF_SaturatingMultiply(whole->value, bytes);
    else
        number_ = IPE_Float(number->__float__() * static_cast<double>(bytes))->__int__();
}
