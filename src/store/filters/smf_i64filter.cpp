// Comparisons of 64-bit numbers.
#include "store/filters/smf_i64filter.h"

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

SMF_I64Filter::SMF_I64Filter(const SMF_FilterScope& scope, int32_t index) : SMF_FieldFilter(scope, index) {
    value_.connect(scope.record, meta_->name);
}

bool SMF_I64Filter::parse(IPE_TokenSource& tokens, std::string_view name, int depth) {
    std::optional<SMF_Comparison> comparison = SMF_TakeComparison(tokens, true);
    if (!comparison) expecting(tokens, "an operator");
    comparison_ = *comparison;
    if (tokens.kind() == TOKEN_IDENTIFIER) {
        connectOther(other_, tokens);
        field_ = true;
    } else {
        parseNumber(tokens);
    }
    return true;
}

// A number with decimals counts before its unit: 1.5gb.
void SMF_I64Filter::parseNumber(IPE_TokenSource& tokens) {
    if (tokens.kind() != TOKEN_NUMBER) expecting(tokens, "a number or a field");
    IPE_Object number = tokens.getNumber(false);
    tokens.next();
    int64_t bytes = 1;
    if (tokens.kind() == TOKEN_IDENTIFIER) {
        bytes = 0;
        for (const Unit& unit : Units)
            if (SMF_SameWord(tokens.getTokenText(), unit.word)) bytes = unit.bytes;
        if (bytes == 0) expecting(tokens, "a unit");
        tokens.next();
    }
    if (auto* whole = number.tryAs<IPE_IntType>())
        number_ = SMF_SaturatingMultiply(whole->value, bytes);
    else
        number_ = IPE_Float(number->__float__() * static_cast<double>(bytes))->__int__();
}

void SMF_I64Filter::evaluate(bool& result) {
    result = SMF_Compares(comparison_, value_.get(), field_ ? other_.get() : number_);
}
