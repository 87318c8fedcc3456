// SMF_TreeFilter: a path, as the text of its components joined by the field's separator.
//
//   Path contains 'backup'       Path:end,exactcase = 'Music'
//   Path = '\p*\\old\\\p*'       the marks of `\p*` and `\p?` are wild cards
//   Path:is_malformed            the text has a mark of what was no valid text
//
// A literal with wild cards is matched without regard to case, whatever the options; with `contains` it may
// match any part of the text.
#pragma once

#include <optional>
#include <string>

#include "runtime/epa_wildmatch.h"
#include "store/fields/smf_treefield.h"
#include "store/filters/smf_fieldfilter.h"

class SMF_TreeFilter final : public SMF_FieldFilter {
  public:
    SMF_TreeFilter(const SMF_FilterScope& scope, int32_t index);
    bool parse(IPE_TokenSource& tokens, std::string_view name, int depth) override;
    void evaluate(bool& result) override;

  private:
    bool parseOptions(IPE_TokenSource& tokens);
    void parseLiteral(IPE_TokenSource& tokens);
    bool test(std::string_view text);

    SMF_Tree value_;
    std::string literal_, folded_;
    std::optional<EPA_WildPattern> wild_;
    bool end_ = false, malformed_ = false, exactCase_ = false, contains_ = false, invert_ = false;
    // Neighbouring rows often lie in one path.
    std::string last_;
    bool known_ = false, lastAnswer_ = false;
};
