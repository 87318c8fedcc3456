// SMF_BatchSearch: which values of a decoded batch contain a few bytes.
//
// The own bytes of neighbouring values mostly lie next to each other, so that one search runs over many
// values at once; texts that values share are looked at once each. Belongs to one thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "store/smf_fielddecoder.h"

// One byte for each symbol of a decoder, kept while the symbols keep their numbers; 0 for those not met.
class SMF_SymbolAnswers {
  public:
    // True when the symbols have new numbers: all bytes are 0 again.
    bool follow(const SMF_StringDecoder& decoder) {
        if (&decoder == decoder_ && epoch_ == decoder.symbolEpoch()) return false;
        decoder_ = &decoder;
        epoch_ = decoder.symbolEpoch();
        bytes_.clear();
        return true;
    }
    // Of a decoder that is followed.
    uint8_t& operator[](uint32_t symbol) {
        if (symbol >= bytes_.size()) [[unlikely]]
            bytes_.resize(decoder_->symbolCount());
        return bytes_[symbol];
    }

  private:
    const SMF_StringDecoder* decoder_ = nullptr;
    uint32_t epoch_ = 0;
    std::vector<uint8_t> bytes_;
};

class SMF_BatchSearch {
  public:
    static constexpr size_t LongestNeedle = 64;
    enum Answer : uint8_t { No = 0, Maybe = 1, Yes = 2 };

    // `needle` has 1 to LongestNeedle bytes; with `ignoreCase` it is ASCII in lower case.
    SMF_BatchSearch(std::string_view needle, bool ignoreCase);
    // Of row `row`, from 0, in the decoder's present batch. Maybe is for texts in which other letters than
    // the needle's could count as equal.
    Answer of(const SMF_StringDecoder& decoder, int64_t row) {
        const auto& batch = decoder.batch();
        if (decoder.symbolEpoch() != epoch_ || batch.first != first_ || batch.count != count_)
            search(decoder);
        return static_cast<Answer>(answers_[static_cast<size_t>(row - first_)]);
    }
    // Of the rows from `row` on to the end of the batch; valid until the next call.
    const uint8_t* answers(const SMF_StringDecoder& decoder, int64_t row) {
        of(decoder, row);
        return answers_.data() + (row - first_);
    }

  private:
    enum SymbolBits : uint8_t { Known = 1, Contains = 2, Continues = 4, Unsure = 8 };
    void search(const SMF_StringDecoder& decoder);
    uint8_t judgeSymbol(std::string_view symbol);
    void applySymbols(const SMF_StringDecoder& decoder);
    bool spans(std::string_view base, std::string_view symbol);
    void searchRun(const SMF_TextValue* values, size_t from, size_t to);
    void mark(const SMF_TextValue* values, size_t from, size_t to, const char* begin, const char* bytes,
              size_t size);
    bool isUnsure(std::string_view text) const;
    std::string_view lower(std::string_view text);

    std::string needle_;
    bool ignoreCase_;
    bool hasRelatives_;   // the needle has letters that others beyond ASCII count as equal to
    uint32_t epoch_ = 0;  // of the decoder searched last; 0 for none
    int64_t first_ = 0;
    uint32_t count_ = 0;
    SMF_SymbolAnswers symbols_;
    uint32_t symbolsJudged_ = 0;
    bool symbolsMatter_ = false;
    std::vector<uint8_t> answers_;
    std::string lower_;
};

// ASCII letters in lower case, other bytes as they are; `to` may be `from`. Tells whether a byte above 127
// was there. The second form is the plain twin of the first.
bool SMF_LowerBytes(const char* from, size_t size, char* to) noexcept;
bool SMF_LowerBytesPlain(const char* from, size_t size, char* to) noexcept;

// Where `needle`, which is not empty, first stands in the text, or null; and its plain twin.
const char* SMF_FindBytes(const char* text, size_t size, std::string_view needle) noexcept;
const char* SMF_FindBytesPlain(const char* text, size_t size, std::string_view needle) noexcept;
