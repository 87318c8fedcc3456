// One walk over the pattern at its top level. Letters gather into runs; what is no letter ends a run, and a
// quantifier that allows none takes the last letter out of it. The longest run is the literal.
#include "store/filters/smf_patternliteral.h"

namespace {

constexpr size_t Npos = std::string_view::npos;
constexpr std::string_view Replacement = "\xEF\xBF\xBD";  // stands for broken bytes when a text is matched

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

class Walk {
  public:
    Walk(std::string_view pattern, bool ignoreCase) : pattern_(pattern), ignoreCase_(ignoreCase) {}
    // False when nothing can be said.
    bool run();
    SMF_PatternLiteral result() {
        endRun();
        return {best_, plain_ && !best_.empty()};
    }

  private:
    bool step();
    bool escape();
    bool quoted();
    bool group();
    bool characterClass();
    bool braces();
    void letter(char c);
    void endRun();
    void breakRun() {
        plain_ = false;
        endRun();
    }
    void dropLast();
    bool at(size_t position, char c) const { return position < pattern_.size() && pattern_[position] == c; }

    std::string_view pattern_;
    bool ignoreCase_;
    size_t at_ = 0;
    std::string run_, best_;
    bool plain_ = true;
};

void Walk::letter(char c) {
    if (ignoreCase_ && static_cast<signed char>(c) < 0) {
        breakRun();
        return;
    }
    run_ += ignoreCase_ && c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

void Walk::endRun() {
    if (run_.size() > best_.size()) best_ = run_;
    run_.clear();
}

// The last code point is optional.
void Walk::dropLast() {
    while (!run_.empty() && (run_.back() & 0xC0) == 0x80) run_.pop_back();
    if (!run_.empty()) run_.pop_back();
}

bool Walk::quoted() {
    size_t end = pattern_.find("\\E", at_ + 2);
    for (size_t i = at_ + 2; i < std::min(end, pattern_.size()); ++i) letter(pattern_[i]);
    at_ = end == Npos ? pattern_.size() : end + 2;
    return true;
}

bool Walk::escape() {
    constexpr std::string_view Harmless = "dDwWsSbBAzZhHvVRX";
    if (at_ + 1 >= pattern_.size()) return false;
    char c = pattern_[at_ + 1];
    if (c == 'Q') return quoted();
    if (isDigit(c) || static_cast<signed char>(c) < 0) return false;
    if (isLetter(c)) {
        if (Harmless.find(c) == Npos) return false;
        breakRun();
    } else {
        letter(c);
    }
    at_ += 2;
    return true;
}

// Steps over a class; `at_` is at its bracket.
bool Walk::characterClass() {
    breakRun();
    ++at_;
    if (at(at_, '^')) ++at_;
    if (at(at_, ']')) ++at_;
    for (; at_ < pattern_.size(); ++at_) {
        char c = pattern_[at_];
        if (c == ']') {
            ++at_;
            return true;
        }
        if (c == '[') return false;  // a named class, or a bracket that looks like one
        if (c == '\\') {
            ++at_;
            if (at(at_, 'Q') || at(at_, 'E')) return false;
        }
    }
    return false;
}

// Steps over a group with everything in it.
bool Walk::group() {
    breakRun();
    int depth = 0;
    while (at_ < pattern_.size()) {
        switch (pattern_[at_]) {
            case '(':
                if (at(at_ + 1, '?') || at(at_ + 1, '*')) return false;
                ++depth;
                ++at_;
                break;
            case ')':
                ++at_;
                if (--depth == 0) return true;
                break;
            case '[':
                if (!characterClass()) return false;
                break;
            case '\\':
                if (at(at_ + 1, 'Q')) {
                    size_t end = pattern_.find("\\E", at_ + 2);
                    if (end == Npos) return false;
                    at_ = end;
                }
                at_ += 2;
                break;
            default: ++at_;
        }
    }
    return false;
}

// A quantifier in braces; a brace that is a letter is left to nobody's guess.
bool Walk::braces() {
    size_t end = pattern_.find('}', at_);
    if (end == Npos) return false;
    for (size_t i = at_ + 1; i < end; ++i)
        if (!isDigit(pattern_[i]) && pattern_[i] != ',') return false;
    at_ = end + 1;
    return true;
}

bool Walk::step() {
    char c = pattern_[at_];
    switch (c) {
        case '|':
        case ')': return false;
        case '(': return group();
        case '[': return characterClass();
        case '\\': return escape();
        case '.':
        case '^':
        case '$':
            breakRun();
            ++at_;
            return true;
        case '{':
            dropLast();
            breakRun();
            return braces();
        case '*':
        case '?':
            dropLast();
            breakRun();
            ++at_;
            return true;
        case '+':
            breakRun();
            ++at_;
            return true;
        default:
            letter(c);
            ++at_;
            return true;
    }
}

bool Walk::run() {
    while (at_ < pattern_.size())
        if (!step()) return false;
    return true;
}

}  // namespace

SMF_PatternLiteral SMF_RequiredLiteral(std::string_view pattern, bool ignoreCase) {
    Walk walk(pattern, ignoreCase);
    if (!walk.run()) return {};
    SMF_PatternLiteral literal = walk.result();
    if (literal.text.find(Replacement) != std::string::npos) return {};
    return literal;
}

bool SMF_LooksAhead(std::string_view pattern) {
    for (size_t i = 0; i < pattern.size(); ++i) {
        char next = i + 1 < pattern.size() ? pattern[i + 1] : '\0';
        switch (pattern[i]) {
            case '^':
                if (i == 0 || pattern[i - 1] != '[') return false;
                break;
            case '\\':
                if ((isLetter(next) || isDigit(next)) && std::string_view("dDsSwW").find(next) == Npos)
                    return false;
                ++i;
                break;
            case '(':
                if (next == '*' || (next == '?' && pattern.substr(i, 3) != "(?:")) return false;
                break;
            default: break;
        }
    }
    return true;
}
