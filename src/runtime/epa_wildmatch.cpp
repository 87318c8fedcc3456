// Matching keeps one place to go back to: behind the last star. An earlier star need never take more, because
// whatever the part between two stars could match later it can also match at its first place, and the later
// star takes the rest. So the answer is the one of trying each place after every star in turn, without its
// cost.
#include "runtime/epa_wildmatch.h"

#include "platform/pf_locale.h"
#include "runtime/epa_convert.h"
#include "runtime/xpk_exception.h"

namespace {

// Bytes that are not UTF-8 become values outside Unicode, which no case mapping touches.
std::u32string codesOf(std::string_view text) {
    std::u32string codes;
    codes.reserve(text.size());
    for (size_t at = 0; at < text.size();) codes += EPA_NextCodePoint(text, at);
    return codes;
}

// A text as a run of code points with places to go back to.
struct Utf8Text {
    std::string_view text;
    size_t size() const { return text.size(); }
    char32_t next(size_t& at) const {
        auto c = static_cast<unsigned char>(text[at]);
        if (c >= 0x80) return EPA_NextCodePoint(text, at);
        ++at;
        return c;
    }
};

struct Utf32Text {
    std::u32string_view text;
    size_t size() const { return text.size(); }
    char32_t next(size_t& at) const { return text[at++]; }
};

}  // namespace

EPA_WildPattern::EPA_WildPattern(std::string_view pattern) : upper_(codesOf(pattern)), lower_(upper_) {
    XPK_ThrowSystemError("LCMapString", platform::toUpper(0, upper_));
    XPK_ThrowSystemError("LCMapString", platform::toLower(0, lower_));
}

EPA_WildPattern::EPA_WildPattern(std::u32string upper, std::u32string lower)
    : upper_(std::move(upper)), lower_(std::move(lower)) {
    XPK_Assert(upper_.size() == lower_.size());
}

template <typename Text>
bool EPA_WildPattern::match(Text text) const {
    constexpr size_t None = static_cast<size_t>(-1);
    size_t at = 0, place = 0;
    size_t star = None, retry = 0;  // behind the last star; where its run ends for now
    for (;;) {
        if (place < upper_.size() && upper_[place] == '*') {
            star = ++place;
            retry = at;
            if (star == upper_.size()) return true;
            continue;
        }
        if (at == text.size()) return place == upper_.size();
        if (place < upper_.size()) {
            size_t next = at;
            char32_t code = text.next(next);
            if (upper_[place] == '?' || upper_[place] == code || lower_[place] == code) {
                at = next;
                ++place;
                continue;
            }
        }
        if (star == None) return false;
        text.next(retry);
        at = retry;
        place = star;
    }
}

bool EPA_WildPattern::matches(std::string_view text) const { return match(Utf8Text{text}); }
bool EPA_WildPattern::matches(std::u32string_view text) const { return match(Utf32Text{text}); }

bool EPA_WildMatch(std::string_view text, std::string_view pattern) {
    return EPA_WildPattern(pattern).matches(text);
}
