// Searching a batch: first what values share, then what is their own.
//
// The needle may also lie across the border of both: then the own bytes end with its beginning and the shared
// text begins with its rest. Only symbols that begin with a rest of the needle can do that.
//
// Without regard to case the search runs over a copy in lower case. Two code points beyond ASCII count as
// equal to ASCII letters: the Kelvin sign to k and the long s to s. A run of texts that holds one of them,
// with a needle that has such a letter, gets no answer here.
#include "store/filters/smf_batchsearch.h"

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

constexpr std::string_view KelvinSign = "\xE2\x84\xAA", LongS = "\xC5\xBF";

// Bytes between two values that still count as one run: a length or a code. Blocks of memory of their own
// lie further apart, since the allocator keeps its marks between them.
constexpr uintptr_t LargestGap = 4;

typedef signed char Vector __attribute__((vector_size(16)));

}  // namespace

bool SMF_LowerBytesPlain(const char* from, size_t size, char* to) noexcept {
    unsigned char all = 0;
    for (size_t i = 0; i < size; ++i) {
        char c = from[i];
        all |= static_cast<unsigned char>(c);
        to[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    return all >= 0x80;
}

bool SMF_LowerBytes(const char* from, size_t size, char* to) noexcept {
    Vector all{};
    size_t i = 0;
    for (; i + sizeof(Vector) <= size; i += sizeof(Vector)) {
        Vector bytes;
        std::memcpy(&bytes, from + i, sizeof bytes);
        all |= bytes;
        Vector upper = reinterpret_cast<Vector>((bytes >= 'A') & (bytes <= 'Z'));
        bytes |= upper & 32;
        std::memcpy(to + i, &bytes, sizeof bytes);
    }
    uint64_t halves[2];
    std::memcpy(halves, &all, sizeof halves);
    bool beyond = ((halves[0] | halves[1]) & 0x8080808080808080u) != 0;
    return SMF_LowerBytesPlain(from + i, size - i, to + i) || beyond;
}

const char* SMF_FindBytesPlain(const char* text, size_t size, std::string_view needle) noexcept {
    return static_cast<const char*>(memmem(text, size, needle.data(), needle.size()));
}

const char* SMF_FindBytes(const char* text, size_t size, std::string_view needle) noexcept {
#if defined(__SSE2__)
    // Sixteen places at once where both the needle's first and last byte stand.
    size_t reach = needle.size() - 1;
    const __m128i first = _mm_set1_epi8(needle.front()), last = _mm_set1_epi8(needle.back());
    while (size >= reach + 16) {
        __m128i begins = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(text)), first);
        __m128i ends = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(text + reach)), last);
        auto places = static_cast<unsigned>(_mm_movemask_epi8(_mm_and_si128(begins, ends)));
        for (; places != 0; places &= places - 1) {
            const char* place = text + __builtin_ctz(places);
            if (std::memcmp(place, needle.data(), needle.size()) == 0) return place;
        }
        text += 16;
        size -= 16;
    }
#endif
    return SMF_FindBytesPlain(text, size, needle);
}

SMF_BatchSearch::SMF_BatchSearch(std::string_view needle, bool ignoreCase)
    : needle_(needle),
      ignoreCase_(ignoreCase),
      hasRelatives_(ignoreCase && needle.find_first_of("ks") != std::string_view::npos),
      answers_(SMF_FieldDecoder::BatchRows) {}

bool SMF_BatchSearch::isUnsure(std::string_view text) const {
    return hasRelatives_ &&
           (text.find(KelvinSign) != std::string_view::npos || text.find(LongS) != std::string_view::npos);
}

std::string_view SMF_BatchSearch::lower(std::string_view text) {
    if (!ignoreCase_) return text;
    if (lower_.size() < text.size()) lower_.resize(text.size());
    SMF_LowerBytes(text.data(), text.size(), lower_.data());
    return {lower_.data(), text.size()};
}

uint8_t SMF_BatchSearch::judgeSymbol(std::string_view symbol) {
    uint8_t bits = Known;
    if (isUnsure(symbol)) bits |= Unsure;
    symbol = lower(symbol);
    if (symbol.find(needle_) != std::string_view::npos) bits |= Contains;
    for (size_t own = 1; own < needle_.size(); ++own)
        if (symbol.starts_with(std::string_view(needle_).substr(own))) bits |= Continues;
    return bits;
}

bool SMF_BatchSearch::spans(std::string_view base, std::string_view symbol) {
    std::string_view needle = needle_;
    char first[LongestNeedle], second[LongestNeedle];
    std::string_view tail = base.substr(base.size() - std::min(base.size(), needle.size()));
    std::string_view head = symbol.substr(0, needle.size());
    if (ignoreCase_) {
        SMF_LowerBytesPlain(tail.data(), tail.size(), first);
        SMF_LowerBytesPlain(head.data(), head.size(), second);
        tail = {first, tail.size()};
        head = {second, head.size()};
    }
    for (size_t own = 1; own < needle.size(); ++own)
        if (tail.ends_with(needle.substr(0, own)) && head.starts_with(needle.substr(own))) return true;
    return false;
}

void SMF_BatchSearch::applySymbols(const SMF_StringDecoder& decoder) {
    if (symbols_.follow(decoder)) {
        symbolsJudged_ = 0;
        symbolsMatter_ = false;
    }
    for (; symbolsJudged_ < decoder.symbolCount(); ++symbolsJudged_) {
        uint8_t& bits = symbols_[symbolsJudged_];
        bits = judgeSymbol(decoder.symbol(symbolsJudged_));
        symbolsMatter_ |= bits != Known;
    }
    if (!symbolsMatter_) return;
    const SMF_TextValue* values = decoder.batch().values;
    for (size_t i = 0; i < count_; ++i) {
        uint8_t bits = symbols_[values[i].symbol];
        if (bits == Known) continue;
        if (bits & Contains)
            answers_[i] = Yes;
        else if (bits & Unsure)
            answers_[i] = Maybe;
        else if (values[i].length > 0 && spans(values[i].own(), decoder.symbol(values[i].symbol)))
            answers_[i] = Yes;
    }
}

void SMF_BatchSearch::mark(const SMF_TextValue* values, size_t from, size_t to, const char* begin,
                           const char* bytes, size_t size) {
    size_t i = from;
    const char* end = bytes + size;
    for (const char* at = bytes; at < end;) {
        const char* hit = SMF_FindBytes(at, static_cast<size_t>(end - at), needle_);
        if (!hit) return;
        const char* place = begin + (hit - bytes);
        while (i < to && (values[i].length == 0 || values[i].base + values[i].length <= place)) ++i;
        if (i == to) return;
        const char* last = values[i].base + values[i].length;
        if (place >= values[i].base && place + needle_.size() <= last) {
            answers_[i] = Yes;
            at = bytes + (last - begin);
        } else {
            at = hit + 1;
        }
    }
}

void SMF_BatchSearch::searchRun(const SMF_TextValue* values, size_t from, size_t to) {
    const char* begin = values[from].base;
    auto size = static_cast<size_t>(values[to - 1].base + values[to - 1].length - begin);
    const char* bytes = begin;
    if (ignoreCase_) {
        if (lower_.size() < size) lower_.resize(size);
        bool beyond = SMF_LowerBytes(begin, size, lower_.data());
        if (beyond && isUnsure({begin, size})) {
            for (size_t i = from; i < to; ++i) answers_[i] = std::max<uint8_t>(answers_[i], Maybe);
            return;
        }
        bytes = lower_.data();
    }
    mark(values, from, to, begin, bytes, size);
}

void SMF_BatchSearch::search(const SMF_StringDecoder& decoder) {
    const auto& batch = decoder.batch();
    epoch_ = 0;  // until all is done
    first_ = batch.first;
    count_ = batch.count;
    if (answers_.size() < count_) answers_.resize(count_);
    std::memset(answers_.data(), No, count_);
    applySymbols(decoder);
    const SMF_TextValue* values = batch.values;
    constexpr size_t None = SIZE_MAX;
    size_t from = None, to = 0;
    for (size_t i = 0; i < count_; ++i) {
        if (values[i].length == 0) continue;
        if (from != None) {
            auto end = reinterpret_cast<uintptr_t>(values[to - 1].base) + values[to - 1].length;
            auto base = reinterpret_cast<uintptr_t>(values[i].base);
            if (base < end || base - end > LargestGap) {
                searchRun(values, from, to);
                from = None;
            }
        }
        if (from == None) from = i;
        to = i + 1;
    }
    if (from != None) searchRun(values, from, to);
    epoch_ = decoder.symbolEpoch();
}
