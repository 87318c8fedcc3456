// FSI_RowGroups: which group a row belongs to, by a regular expression on the text of a column and, if there
// is one, a script that turns what was found into something else.
//
// Groups are numbered in the order in which they are first seen; their names are in lower case. The answer is
// kept where rows share it: by symbol of a text column, and by number for a column that shows something by
// number. Belongs to the table's thread; the table must outlive it.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "census/fsi_readertable.h"
#include "store/fields/smf_stringfield.h"
#include "store/filters/smf_textmatcher.h"

class FSI_RowGroups {
  public:
    static constexpr uint32_t None = UINT32_MAX;  // the row belongs to no group

    struct Rules {
        std::string column;
        std::string expression;
        std::optional<std::string>
            absent;  // the value of a text that does not match; without one it has none
        // A Lua function, called with a tuple of the value and those of `columns`; null for none. Its result,
        // a text, number or truth, replaces the value.
        IPE_Object transform;
        std::vector<std::string> columns;
    };
    // RuntimeError "Error compiling regular expression: $errmsg"; DatabaseError "$field is not a property on
    // $table objects.".
    FSI_RowGroups(FSI_ReaderTable& table, const Rules& rules);

    // Of the table's current row. RuntimeException when the expression takes too many steps, TypeError for a
    // result of the transform that is no value.
    uint32_t ofRow();
    const std::deque<std::string>& names() const noexcept { return names_; }
    // Forgets all groups.
    void clear();

  private:
    static constexpr uint32_t Unknown = UINT32_MAX - 1;
    static constexpr size_t MostKept = 1 << 16;
    struct Symbol {
        uint32_t group = Unknown;
        bool decides = false;  // whatever stands in front of it
    };
    Symbol& symbol(SMF_StringDecoder& decoder, uint32_t id);
    uint32_t ofText(std::string_view text);
    uint32_t ofValue(std::string_view value, bool matches);
    uint32_t ofNumber();
    uint32_t transformed(std::string_view value);
    uint32_t named(std::string_view value);

    FSI_ReaderTable& table_;
    std::unique_ptr<SMF_TextMatcher> matcher_;
    std::optional<std::string> absent_;
    IPE_Object transform_;
    bool onlyExtension_;
    int32_t index_;
    std::vector<int32_t> columns_;
    SMF_String text_;         // the column, when its stored text is what it shows
    SMF_FieldHandle number_;  // the column, when it shows something by number
    bool byNumber_ = false;
    uint32_t epoch_ = 0;
    std::vector<Symbol> symbols_;
    std::unordered_map<int64_t, uint32_t> numbers_;  // kept answers
    std::unordered_map<std::string, uint32_t>
        spelled_;  // kept answers: the group of a value as it is spelled
    std::deque<std::string> names_;
    std::unordered_map<std::string_view, uint32_t> groups_;  // by name, a view of names_
    std::string key_;
    std::vector<IPE_Object> results_;
};
