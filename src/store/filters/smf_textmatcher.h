// SMF_TextMatcher: a regular expression over texts, above all over the rows of a column.
//
//   SMF_TextMatcher matcher("\\.iso$", true);
//   ... for each row: if (matcher.matches(name)) ...
//
// The answers are those of the engine for each value. What every match must contain is looked for in a whole
// decoded batch at once, and the engine sees only the rows that have it; a pattern that is plain text needs
// no engine at all.
//
// Bytes that are no UTF-8 count as U+FFFD each. A match that takes more than a bounded number of steps raises
// RuntimeException "The PCRE engine returned an error". Belongs to one thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "store/fields/smf_stringfield.h"
#include "store/filters/smf_batchsearch.h"

class SMF_TextMatcher {
  public:
    // Option blocks (IPE_TakePatternOptions) are taken out of the pattern unless `plain` is set. A pattern
    // that is none raises InvalidRegularExpressionException "$message".
    SMF_TextMatcher(std::string_view pattern, bool ignoreCase, bool plain = false);
    ~SMF_TextMatcher();
    SMF_TextMatcher(const SMF_TextMatcher&) = delete;
    SMF_TextMatcher& operator=(const SMF_TextMatcher&) = delete;

    // Both are inverted when the pattern has the option N.
    bool matches(std::string_view text);
    // The value of the handle's current row.
    bool matches(const SMF_String& handle) {
        SMF_BatchSearch::Answer answer = look(handle);
        if (answer == SMF_BatchSearch::No) return invert_;
        if (answer == SMF_BatchSearch::Yes && sure_) return !invert_;
        return matches(handle.get());
    }
    // The first match in `text`, whatever the options say. Views live until the matcher's next call, those
    // into `text` as long as that.
    struct Match {
        std::string_view whole;
        std::string_view group;  // the first one
        bool hasGroup = false;   // the pattern has a group, and it took part
    };
    bool find(std::string_view text, Match& match);
    // False when the engine finds nothing in the current value nor in any part of it.
    bool mayFind(const SMF_String& handle) { return look(handle) != SMF_BatchSearch::No; }
    bool isInverted() const noexcept { return invert_; }
    // --- For many rows. What a search tells, before the option N, of row `row`, from 1, of the decoder's
    // batch and those behind it: one SMF_BatchSearch::Answer each. Null when there is no search. Valid until
    // the next call.
    const uint8_t* look(const SMF_StringDecoder& decoder, int64_t row) {
        return search_ && decoder.batch().count >= FewRows ? search_->answers(decoder, row - 1) : nullptr;
    }
    // A Yes of the search is a match.
    bool isSure() const noexcept { return sure_; }
    // The engine finds a match in `tail`, and so in every text that ends with it. False also when that cannot
    // be told.
    bool matchesTail(std::string_view tail);

  private:
    struct Code;
    struct Memory;
    static Memory& memory();
    SMF_BatchSearch::Answer look(const SMF_String& handle) {
        SMF_StringDecoder* decoder = handle.decoder();
        int64_t row = handle.row();
        if (!search_ || !decoder || row <= 0) return SMF_BatchSearch::Maybe;
        if (!decoder->batch().contains(row - 1)) decoder->load(row);
        if (decoder->batch().count < FewRows) return SMF_BatchSearch::Maybe;
        return search_->of(*decoder, row - 1);
    }
    bool findIn(std::string_view& text);
    int findAtOnce(std::string_view text);
    int findInStretches(std::string_view text);
    std::unique_ptr<Code> compile(uint32_t options) const;

    static constexpr uint32_t FewRows = 8;  // a batch of fewer is not searched
    bool invert_ = false;                   // set while pattern_ is made
    std::string pattern_;
    bool ignoreCase_;
    bool sure_ = false;        // a text that contains the literal matches
    bool looksAhead_ = false;  // what stands before a match does not matter
    std::optional<SMF_BatchSearch> search_;
    std::unique_ptr<Code> code_, stretched_;
    std::string repaired_;
};
