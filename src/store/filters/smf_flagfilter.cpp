// Tests of flags.
#include "store/filters/smf_flagfilter.h"

#include <algorithm>
#include <cstring>

#include "ipe/values/ipe_tokensource.h"

SMF_FlagFilter::SMF_FlagFilter(const SMF_FilterScope& scope, int32_t index) : SMF_FieldFilter(scope, index) {
    value_.connect(scope.record, meta_->name);
}

bool SMF_FlagFilter::parse(IPE_TokenSource& tokens, std::string_view name, int depth) {
    exactly_ = tokens.kind() == TOKEN_ASSIGN || tokens.kind() == TOKEN_EQ || tokens.kind() == TOKEN_IS;
    if (!exactly_ && !SMF_AtWord(tokens, "has")) expecting(tokens, "an operator");
    tokens.next();
    const auto& names = static_cast<const SMF_FlagData&>(*meta_->data).shortNames;
    SMF_TakeNames(tokens, [&](const std::string& flag) {
        auto found = std::find(names.begin(), names.end(), flag);
        auto bit = found - names.begin();
        if (found == names.end() || flag.empty() || bit >= 128) expecting(tokens, "the name of a flag");
        wanted_.set(static_cast<int>(bit));
    });
    return true;
}

bool SMF_FlagFilter::holds(const SMF_FlagValue& flags) const {
    uint64_t value[2], wanted[2];
    std::memcpy(value, flags.bytes, sizeof value);
    std::memcpy(wanted, wanted_.bytes, sizeof wanted);
    if (exactly_) return value[0] == wanted[0] && value[1] == wanted[1];
    return (value[0] & wanted[0]) == wanted[0] && (value[1] & wanted[1]) == wanted[1];
}

void SMF_FlagFilter::evaluate(bool& result) { result = holds(value_.get()); }

size_t SMF_FlagFilter::sift(uint8_t* keep, size_t limit) {
    std::span<const SMF_FlagValue> values = value_.span(limit);
    for (size_t i = 0; i < values.size(); ++i) keep[i] &= static_cast<uint8_t>(holds(values[i]));
    return values.size();
}
