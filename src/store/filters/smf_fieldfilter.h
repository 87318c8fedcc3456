// SMF_FieldFilter: one test on one field, and what the tests of all types share.
//
// A test reads its own piece of the query and then answers once for each row. Reading happens once and may
// allocate; answering does not, beyond what the field's value takes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "runtime/ipe_object.h"
#include "store/smf_fieldhandle.h"

class IPE_TokenSource;
class SMF_FilterContext;

// Where a test stands. The dictionary is that of the record filter and all filters nested in it.
struct SMF_FilterScope {
    SMF_Record& record;
    SMF_FilterContext* context;  // may be null
    IPE_Object variables;
};

class SMF_FieldFilter {
  public:
    virtual ~SMF_FieldFilter();
    // Reads the test that begins at the current token, behind the field's name, and leaves the source at the
    // first token that is not part of it. False when it read nothing. Faults are syntax errors of the source.
    virtual bool parse(IPE_TokenSource& tokens, std::string_view name, int depth) = 0;
    virtual void evaluate(bool& result) = 0;
    // evaluate() for many rows at once, the current one and those behind it, up to `limit`: of those whose
    // byte is 1 it clears the bytes of the rows that fail. Gives how many rows it judged; 0 when it judges
    // only one by one. The current row's byte is 1; a fault of another row ends the judged rows before it.
    virtual size_t sift(uint8_t* keep, size_t limit) { return 0; }

    // The answer depends on more than the stored data.
    bool isNotCacheable() const noexcept { return notCacheable_; }
    // evaluate() only adds to the accumulator and gives no answer.
    bool measures() const noexcept { return measures_; }

    SMF_FieldFilter(const SMF_FieldFilter&) = delete;
    SMF_FieldFilter& operator=(const SMF_FieldFilter&) = delete;

  protected:
    // `index` is a field of the record. A writer's record is an assertion.
    SMF_FieldFilter(const SMF_FilterScope& scope, int32_t index);
    // SMF_ConnectField with the test's record.
    void connectOther(SMF_FieldHandle& handle, IPE_TokenSource& tokens) const;
    // "Expecting ..." as a syntax error.
    [[noreturn]] static void expecting(IPE_TokenSource& tokens, std::string_view what);

    SMF_FilterScope scope_;
    const SMF_RecordMeta& recordMeta_;
    std::shared_ptr<SMF_FieldMeta> meta_;
    bool notCacheable_ = false;
    bool measures_ = false;
};

enum class SMF_Comparison : uint8_t { Equal, NotEqual, Less, LessEqual, Greater, GreaterEqual };

template <class T>
bool SMF_Compares(SMF_Comparison comparison, const T& left, const T& right) {
    switch (comparison) {
        case SMF_Comparison::Equal: return left == right;
        case SMF_Comparison::NotEqual: return left != right;
        case SMF_Comparison::Less: return left < right;
        case SMF_Comparison::LessEqual: return left <= right;
        case SMF_Comparison::Greater: return left > right;
        case SMF_Comparison::GreaterEqual: return left >= right;
    }
    return false;
}

// Calls `visit` with a function of two values that compares them.
template <class T, class Visit>
void SMF_WithComparison(SMF_Comparison comparison, Visit&& visit) {
    switch (comparison) {
        case SMF_Comparison::Equal: return visit([](T a, T b) { return a == b; });
        case SMF_Comparison::NotEqual: return visit([](T a, T b) { return a != b; });
        case SMF_Comparison::Less: return visit([](T a, T b) { return a < b; });
        case SMF_Comparison::LessEqual: return visit([](T a, T b) { return a <= b; });
        case SMF_Comparison::Greater: return visit([](T a, T b) { return a > b; });
        case SMF_Comparison::GreaterEqual: return visit([](T a, T b) { return a >= b; });
    }
}
// Clears the byte of each value that does not hold.
template <class Value, class Holds>
void SMF_SiftEach(std::span<const Value> values, uint8_t* keep, Holds&& holds) {
    for (size_t i = 0; i < values.size(); ++i) keep[i] &= static_cast<uint8_t>(holds(values[i]));
}
// Clears the byte of each value that does not hold against the number, or against its neighbour of the other
// column; both give how many values they judged.
template <class Value>
size_t SMF_SiftNumber(SMF_Comparison comparison, std::span<const Value> values, int64_t right,
                      uint8_t* keep) {
    SMF_WithComparison<int64_t>(comparison, [&](auto holds) {
        SMF_SiftEach(values, keep, [&](Value value) { return holds(value, right); });
    });
    return values.size();
}
template <class Value>
size_t SMF_SiftPairs(SMF_Comparison comparison, std::span<const Value> left, std::span<const Value> right,
                     uint8_t* keep) {
    size_t count = std::min(left.size(), right.size());
    SMF_WithComparison<Value>(comparison, [&](auto holds) {
        for (size_t i = 0; i < count; ++i) keep[i] &= static_cast<uint8_t>(holds(left[i], right[i]));
    });
    return count;
}

// --- Pieces of the query. Each moves past what it takes.

// `=`, `==`, `<>`, `<`, `<=`, `>`, `>=`; with `words` also `eq`, `ne`, `lt`, `le`, `gt`, `ge`.
std::optional<SMF_Comparison> SMF_TakeComparison(IPE_TokenSource& tokens, bool words);
// The current token is this identifier, or a keyword of this text.
bool SMF_AtWord(IPE_TokenSource& tokens, std::string_view word);
bool SMF_TakeWord(IPE_TokenSource& tokens, std::string_view word);
// The text of the current token if it can be a name in a list: an identifier, keyword, number or string
// literal; empty for others. Does not move.
std::string SMF_NameAt(IPE_TokenSource& tokens);
// One name, or names between `[` and `]` separated by `,`: each is given to `each`, which raises for a bad
// one, while it is the current token.
void SMF_TakeNames(IPE_TokenSource& tokens, const std::function<void(const std::string&)>& each);
// A number and the word behind it, as in "3 days" or "5MB"; without a word `unit` is empty. The current token
// must be a number.
struct SMF_Quantity {
    std::string number, unit;
};
SMF_Quantity SMF_TakeQuantity(IPE_TokenSource& tokens);
// Connects `handle` to the field of `record` that the current token names.
void SMF_ConnectField(SMF_FieldHandle& handle, SMF_Record& record, IPE_TokenSource& tokens);

// --- Values.

// The decimal number at the start of a text, at most INT64_MAX.
int64_t SMF_DecimalOf(std::string_view text) noexcept;
// Bounded to 64 bits.
int64_t SMF_SaturatingAdd(int64_t a, int64_t b) noexcept;
int64_t SMF_SaturatingMultiply(int64_t a, int64_t b) noexcept;
// ASCII letters without regard to case.
bool SMF_SameWord(std::string_view a, std::string_view b) noexcept;
// The lower-case form, in `text` itself or in `buffer`.
std::string_view SMF_Fold(std::string_view text, std::string& buffer);
