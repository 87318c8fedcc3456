// Collation on ICU, with a table-driven path for ASCII.
//
// Sorting by locale compares the same collator's texts over and over, and most of them are ASCII. For a
// collator in which every printable ASCII character stands for itself (no contraction or expansion begins
// with one, nothing is numeric, shifted or reordered by context) a comparison of ASCII texts is: first the
// order of the characters' primary weights, then, if all are equal and the lengths too, the order of the
// tertiary weights. Both orders are asked of the collator itself, character by character, when it is opened;
// texts that hold anything else go to ICU.
//
// Guarantee: the fast path gives ICU's own answer. A primary difference decides only when the next byte on
// either side is ASCII too, since a following combining mark may form a contraction with the character
// before.
#include "platform/pf_collation.h"

#include <unicode/ucol.h>
#include <unicode/uset.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <vector>

namespace platform {

namespace {

struct SetCloser {
    void operator()(USet* set) const { uset_close(set); }
};
using SetHandle = std::unique_ptr<USet, SetCloser>;

struct CollatorCloser {
    void operator()(UCollator* collator) const { ucol_close(collator); }
};
using CollatorHandle = std::unique_ptr<UCollator, CollatorCloser>;

int sign(UCollationResult result) { return result == UCOL_LESS ? -1 : result == UCOL_GREATER ? 1 : 0; }

struct Collator {
    LocaleId id = 0;
    unsigned flags = 0;
    CollatorHandle handle;
    bool fast = false;
    // 0: the character is not for the fast path.
    std::array<unsigned char, 128> primary{};
    std::array<unsigned char, 128> tertiary{};

    int open(LocaleId wanted, unsigned wantedFlags);
    void prepare();
    template <typename Char>
    bool compareAscii(std::basic_string_view<Char> left, std::basic_string_view<Char> right,
                      int& order) const;
};

// True if an item of the set is a string that begins with ASCII (or, with `characters`, an ASCII character).
bool touchesAscii(const USet* set, bool characters) {
    for (int32_t i = 0, count = uset_getItemCount(set); i < count; ++i) {
        UChar32 start = 0, end = 0;
        char16_t text[64];
        UErrorCode status = U_ZERO_ERROR;
        int32_t length = uset_getItem(set, i, &start, &end, text, 64, &status);
        if (U_FAILURE(status)) return true;
        if (length == 0 && characters && start < 0x80) return true;
        // An ASCII head with a tail beyond ASCII is met by looking at the next byte.
        if (length >= 2 && text[0] < 0x80 && text[1] < 0x80) return true;
    }
    return false;
}

int Collator::open(LocaleId wanted, unsigned wantedFlags) {
    std::string name;
    if (int error = localeOfId(wanted, name)) return error;
    UErrorCode status = U_ZERO_ERROR;
    CollatorHandle opened(ucol_open(name.c_str(), &status));
    if (U_FAILURE(status)) return status == U_MEMORY_ALLOCATION_ERROR ? ENOMEM : EINVAL;
    if (wantedFlags & CollateIgnoreCase) ucol_setStrength(opened.get(), UCOL_SECONDARY);
    handle = std::move(opened);
    id = wanted;
    flags = wantedFlags;
    prepare();
    return 0;
}

void Collator::prepare() {
    fast = false;
    primary.fill(0);
    tertiary.fill(0);
    UErrorCode status = U_ZERO_ERROR;
    UCollator* full = handle.get();
    for (auto [attribute, value] :
         {std::pair{UCOL_ALTERNATE_HANDLING, UCOL_NON_IGNORABLE}, std::pair{UCOL_NUMERIC_COLLATION, UCOL_OFF},
          std::pair{UCOL_CASE_LEVEL, UCOL_OFF}, std::pair{UCOL_NORMALIZATION_MODE, UCOL_OFF}})
        if (ucol_getAttribute(full, attribute, &status) != value) return;
    SetHandle contractions(uset_openEmpty()), expansions(uset_openEmpty());
    ucol_getContractionsAndExpansions(full, contractions.get(), expansions.get(), true, &status);
    if (U_FAILURE(status) || touchesAscii(contractions.get(), false) || touchesAscii(expansions.get(), true))
        return;

    CollatorHandle base(ucol_clone(full, &status));
    if (U_FAILURE(status)) return;
    ucol_setStrength(base.get(), UCOL_PRIMARY);
    std::vector<char16_t> order;
    for (char16_t c = 0; c < 128; ++c)
        if (ucol_strcoll(base.get(), &c, 1, u"", 0) == UCOL_GREATER) order.push_back(c);
    const auto before = [](const UCollator* with) {
        return [with](char16_t a, char16_t b) { return ucol_strcoll(with, &a, 1, &b, 1) == UCOL_LESS; };
    };
    std::stable_sort(order.begin(), order.end(), before(base.get()));
    const auto rank = [&](const UCollator* with, std::array<unsigned char, 128>& ranks) {
        unsigned char current = 0;
        for (size_t i = 0; i < order.size(); ++i) {
            if (i == 0 || before(with)(order[i - 1], order[i])) ++current;
            ranks[order[i]] = current;
        }
    };
    rank(base.get(), primary);
    std::stable_sort(order.begin(), order.end(), before(full));
    rank(full, tertiary);
    fast = true;
}

template <typename Char>
bool Collator::compareAscii(std::basic_string_view<Char> left, std::basic_string_view<Char> right,
                            int& order) const {
    using Unit = std::conditional_t<sizeof(Char) == 1, unsigned char, Char>;
    const auto next = [](std::basic_string_view<Char> text, size_t at) {
        return at < text.size() ? static_cast<Unit>(text[at]) : Unit{0};
    };
    const size_t common = std::min(left.size(), right.size());
    int later = 0;
    for (size_t i = 0; i < common; ++i) {
        Unit a = static_cast<Unit>(left[i]), b = static_cast<Unit>(right[i]);
        if (a >= 128 || b >= 128 || primary[a] == 0 || primary[b] == 0) return false;
        if (primary[a] != primary[b]) {
            if (next(left, i + 1) >= 128 || next(right, i + 1) >= 128) return false;
            order = primary[a] < primary[b] ? -1 : 1;
            return true;
        }
        if (later == 0 && tertiary[a] != tertiary[b]) later = tertiary[a] < tertiary[b] ? -1 : 1;
    }
    if (left.size() == right.size()) {
        order = later;
        return true;
    }
    // The longer text decides by its next character, if that has a weight of its own.
    const auto& rest = left.size() > right.size() ? left : right;
    Unit c = static_cast<Unit>(rest[common]);
    if (c >= 128 || primary[c] == 0 || next(rest, common + 1) >= 128) return false;
    order = left.size() > right.size() ? 1 : -1;
    return true;
}

// The thread's collator for a locale and flags; null with `error` set if there is none.
const Collator* collatorFor(LocaleId id, unsigned flags, int& error) {
    thread_local std::array<Collator, 4> cache;
    thread_local size_t last = 0, next = 0;
    const auto fits = [&](const Collator& entry) {
        return entry.handle && entry.id == id && entry.flags == flags;
    };
    if (fits(cache[last])) return &cache[last];
    for (size_t i = 0; i < cache.size(); ++i)
        if (fits(cache[i])) return &cache[last = i];
    Collator opened;
    if ((error = opened.open(id, flags))) return nullptr;
    last = next++ % cache.size();
    cache[last] = std::move(opened);
    return &cache[last];
}

}  // namespace

int collate(LocaleId id, std::string_view left, std::string_view right, unsigned flags, int& order) {
    int error = 0;
    const Collator* collator = collatorFor(id, flags, error);
    if (!collator) return error;
    if (collator->fast && collator->compareAscii(left, right, order)) return 0;
    if (left.size() > INT32_MAX || right.size() > INT32_MAX) return EOVERFLOW;
    UErrorCode status = U_ZERO_ERROR;
    order = sign(ucol_strcollUTF8(collator->handle.get(), left.data(), static_cast<int32_t>(left.size()),
                                  right.data(), static_cast<int32_t>(right.size()), &status));
    return U_FAILURE(status) ? EINVAL : 0;
}

int collate(LocaleId id, std::u16string_view left, std::u16string_view right, unsigned flags, int& order) {
    int error = 0;
    const Collator* collator = collatorFor(id, flags, error);
    if (!collator) return error;
    if (collator->fast && collator->compareAscii(left, right, order)) return 0;
    if (left.size() > INT32_MAX || right.size() > INT32_MAX) return EOVERFLOW;
    order = sign(ucol_strcoll(collator->handle.get(), left.data(), static_cast<int32_t>(left.size()),
                              right.data(), static_cast<int32_t>(right.size())));
    return 0;
}

}  // namespace platform
