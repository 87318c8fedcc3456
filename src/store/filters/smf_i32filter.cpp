// Comparisons of 32-bit numbers.
//
// The sets of `in` are kept as ranges, so that a query of a few letters cannot ask for a set of millions.
#include "store/filters/smf_i32filter.h"

#include <algorithm>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_literal.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_tokensource.h"

namespace {

constexpr int64_t MostInRange = 9'999'999;

struct Permission {
    const char* word;
    int64_t bit;
};
constexpr Permission Permissions[] = {
    {"s", 0x800}, {"ur", 0x100}, {"uw", 0x80}, {"ux", 0x40}, {"gr", 0x20},
    {"gw", 0x10}, {"gx", 0x08},  {"or", 0x04}, {"ow", 0x02}, {"ox", 0x01},
};

int64_t rangeNumber(const IPE_Object& object) {
    XPK_Assert(object.is<IPE_IntType>());
    int64_t value = object.as<IPE_IntType>()->value;
    XPK_Assert(value >= 0 && value <= MostInRange);
    return value;
}

}  // namespace

SMF_I32Filter::SMF_I32Filter(const SMF_FilterScope& scope, int32_t index) : SMF_FieldFilter(scope, index) {
    value_.connect(scope.record, meta_->name);
}

bool SMF_I32Filter::parse(IPE_TokenSource& tokens, std::string_view name, int depth) {
    bool isMode = meta_->name == "mode";
    if (isMode && (SMF_AtWord(tokens, "has") || SMF_AtWord(tokens, "is"))) {
        parseBits(tokens);
        return true;
    }
    if (tokens.kind() == TOKEN_IN) {
        parseRanges(tokens);
        return true;
    }
    std::optional<SMF_Comparison> comparison = SMF_TakeComparison(tokens, isMode);
    if (!comparison) expecting(tokens, "an operator");
    if (isMode)
        if (auto second = SMF_TakeComparison(tokens, false)) comparison = second;
    comparison_ = *comparison;
    if (tokens.kind() == TOKEN_IDENTIFIER) {
        connectOther(other_, tokens);
        test_ = Test::Field;
    } else if (tokens.kind() == TOKEN_NUMBER) {
        IPE_Object number = tokens.getNumber(false);
        number_ = number->__int__();
        tokens.next();
    } else {
        expecting(tokens, "a number or a field");
    }
    return true;
}

void SMF_I32Filter::parseBits(IPE_TokenSource& tokens) {
    test_ = SMF_AtWord(tokens, "has") ? Test::HasBits : Test::IsBits;
    tokens.next();
    SMF_TakeNames(tokens, [&](const std::string& word) {
        auto found = std::find_if(std::begin(Permissions), std::end(Permissions),
                                  [&](auto& p) { return word == p.word; });
        if (found == std::end(Permissions)) expecting(tokens, "a permission");
        number_ |= found->bit;
    });
}

void SMF_I32Filter::parseRanges(IPE_TokenSource& tokens) {
    tokens.next();
    IPE_Object items = IPE_ReadLiteral(tokens);
    if (!items.is<IPE_ListType>() && !items.is<IPE_TupleType>()) expecting(tokens, "a list");
    test_ = Test::Ranges;
    for (const IPE_Object& item : items.as<IPE_SequenceType>()->items()) {
        if (item.is<IPE_StringType>()) continue;  // equal to no number
        if (!item.is<IPE_TupleType>()) expecting(tokens, "pairs of numbers in the list");
        auto* pair = item.as<IPE_TupleType>();
        XPK_Assert(pair->count() == 2);
        int64_t first = rangeNumber(pair->at(0));
        ranges_.emplace_back(first, first + rangeNumber(pair->at(1)));
    }
    std::sort(ranges_.begin(), ranges_.end());
    size_t kept = 0;
    for (const auto& range : ranges_) {
        if (kept > 0 && range.first <= ranges_[kept - 1].second)
            ranges_[kept - 1].second = std::max(ranges_[kept - 1].second, range.second);
        else
            ranges_[kept++] = range;
    }
    ranges_.resize(kept);
}

void SMF_I32Filter::evaluate(bool& result) {
    int64_t value = value_.get();
    switch (test_) {
        case Test::Number: result = SMF_Compares(comparison_, value, number_); break;
        case Test::Field: result = SMF_Compares(comparison_, value, int64_t{other_.get()}); break;
        case Test::HasBits: result = (value & number_) == number_; break;
        case Test::IsBits: result = value == number_; break;
        case Test::Ranges: result = inRanges(value); break;
    }
}

bool SMF_I32Filter::inRanges(int64_t value) const {
    auto behind = std::upper_bound(ranges_.begin(), ranges_.end(), value,
                                   [](int64_t v, const auto& range) { return v < range.first; });
    return behind != ranges_.begin() && value <= std::prev(behind)->second;
}

size_t SMF_I32Filter::sift(uint8_t* keep, size_t limit) {
    std::span<const int32_t> values = value_.span(limit);
    switch (test_) {
        case Test::Number: return SMF_SiftNumber(comparison_, values, number_, keep);
        case Test::Field: return SMF_SiftPairs(comparison_, values, other_.span(values.size()), keep);
        case Test::HasBits:
            for (size_t i = 0; i < values.size(); ++i) keep[i] &= (values[i] & number_) == number_;
            break;
        case Test::IsBits: return SMF_SiftNumber(SMF_Comparison::Equal, values, number_, keep);
        case Test::Ranges:
            for (size_t i = 0; i < values.size(); ++i) keep[i] &= static_cast<uint8_t>(inRanges(values[i]));
            break;
    }
    return values.size();
}
