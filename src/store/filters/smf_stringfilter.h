// SMF_StringFilter: a text matched against a regular expression, or looked up in a set.
//
//   Name = '\\.(iso|img)$'              without regard to case; `,ce` heeds it
//   Name.end in ['iso', 'img']          what is behind the last dot
//   Name,tail,ce <> '^core'             what is behind the last slash
//   Owner+2 = '^admin'                  without the first two bytes
//   Name = @groups ['pictures']         names that the context gives
//   Name@length 30 >                    the accumulator takes the bytes
//
// Values that rows share are asked about once. Whatever the order in which the options are written, the dot
// comes first, then the slash, then the bytes.
#pragma once

#include <memory>
#include <string>
#include <unordered_set>

#include "store/fields/smf_stringfield.h"
#include "store/filters/smf_batchsearch.h"
#include "store/filters/smf_fieldfilter.h"

class SMF_TextMatcher;

class SMF_StringFilter final : public SMF_FieldFilter {
  public:
    SMF_StringFilter(const SMF_FilterScope& scope, int32_t index);
    ~SMF_StringFilter() override;
    bool parse(IPE_TokenSource& tokens, std::string_view name, int depth) override;
    void evaluate(bool& result) override;
    size_t sift(uint8_t* keep, size_t limit) override;

  private:
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const noexcept {
            return std::hash<std::string_view>()(text);
        }
    };
    bool parseOptions(IPE_TokenSource& tokens);
    void parseMatch(IPE_TokenSource& tokens);
    void parseMembers(IPE_TokenSource& tokens);
    IPE_Object callContext(IPE_TokenSource& tokens);
    std::string quoted(std::string_view text) const;
    std::string_view reduce(std::string_view text) const;
    // The answer for a whole value.
    bool test(std::string_view text);
    bool testSymbol(const SMF_StringDecoder& decoder, uint32_t symbol);
    bool matchesTail(const SMF_StringDecoder& decoder, uint32_t symbol);
    bool judge(const SMF_StringDecoder& decoder, const SMF_TextValue& value, uint8_t found);
    // Where the value lies in its decoder; null without a plain column.
    const SMF_TextValue* located() const;
    void measure();

    SMF_String value_;
    bool end_ = false, tail_ = false, ignoreCase_ = true, notEqual_ = false;
    size_t skip_ = 0;
    std::unique_ptr<SMF_TextMatcher> matcher_;  // null for a set
    std::unordered_set<std::string, Hash, std::equal_to<>> members_;
    enum SymbolBits : uint8_t { Answered = 1, Passes = 2, TailKnown = 4, TailMatches = 8 };
    SMF_SymbolAnswers symbols_;
    std::string folded_, text_;
};
