// The word is brought to capitals, its odd beginnings are mended, and then each letter is coded with a look
// at its neighbours. Letters beyond the ends read as blanks, which belong to no class.
#include "runtime/epa_metaphone.h"

#include <algorithm>

namespace {

constexpr size_t LongestWord = 511, LongestKey = 127;

bool in(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }
bool isVowel(char c) { return in(c, "AEIOU"); }
bool isSoft(char c) { return in(c, "EIY"); }

std::string lettersOf(std::string_view input) {
    std::string word;
    for (char c : input) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
        if (c >= 'A' && c <= 'Z' && word.size() < LongestWord) word += c;
    }
    return word;
}

void mendEnds(std::string& word) {
    size_t silent = word.size() < 2 ? std::string_view::npos : std::string_view("AGKPW").find(word[0]);
    if (silent != std::string_view::npos && word[1] == "ENNNR"[silent]) word.erase(0, 1);
    if (word.starts_with('X')) word[0] = 'S';
    if (word.starts_with("WH")) word.erase(1, 1);
    if (word.ends_with('S')) word.pop_back();
}

class Coder {
  public:
    explicit Coder(std::string word) : word_(std::move(word)) {}

    std::string key() {
        std::string key;
        for (i_ = 0; i_ < word_.size() && key.size() < LongestKey; ++i_)
            if (at(0) != at(1)) key += code();
        key.resize(std::min(key.size(), LongestKey));
        return key;
    }

  private:
    // The letter at a distance from the current one.
    char at(int distance) const {
        size_t place = i_ + static_cast<size_t>(distance);
        return place < word_.size() ? word_[place] : ' ';
    }
    // True if the current letter has exactly `behind` letters behind it.
    bool isFromEnd(size_t behind) const { return i_ + behind + 1 == word_.size(); }

    std::string_view code() const;
    std::string_view codeC() const;
    std::string_view codeG() const;
    std::string_view codeS() const;
    std::string_view codeT() const;

    std::string word_;
    size_t i_ = 0;
};

std::string_view Coder::codeC() const {
    const char p = at(-1), n = at(1), n2 = at(2);
    if (i_ >= 2 && p == 'S' && isSoft(n)) return "";
    if (i_ > 0 && n == 'I' && n2 == 'A') return "X";
    if (isSoft(n)) return "S";
    if (n == 'H') return (i_ >= 2 && p == 'S') || (i_ == 0 && !isVowel(n2)) ? "K" : "X";
    return p == 'C' ? "C" : "K";
}

std::string_view Coder::codeG() const {
    const char p = at(-1), n = at(1), n2 = at(2);
    if (n == 'H' && !isVowel(n2) && i_ + 2 < word_.size()) return "";
    if (n == 'N' && isFromEnd(1)) return "";
    if (isFromEnd(3) && n == 'N' && n2 == 'E' && at(3) == 'D') return "";
    if (p == 'D' && isSoft(n)) return "";
    return isSoft(n) && p != 'G' ? "J" : "K";
}

std::string_view Coder::codeS() const {
    const char n = at(1), n2 = at(2);
    if (i_ >= 2 && n == 'I' && (n2 == 'O' || n2 == 'A')) return "X";
    return n == 'H' ? "X" : "S";
}

std::string_view Coder::codeT() const {
    const char n = at(1), n2 = at(2);
    if (i_ >= 2 && n == 'I' && (n2 == 'O' || n2 == 'A')) return "X";
    if (n == 'H') return i_ > 0 || isVowel(n2) ? "0" : "T";
    return n == 'C' && n2 == 'H' && i_ + 3 < word_.size() ? "" : "T";
}

std::string_view Coder::code() const {
    const char p = at(-1), n = at(1);
    const char* letter = &word_[i_];
    switch (*letter) {
        case 'A':
        case 'E':
        case 'I':
        case 'O':
        case 'U': return {letter, i_ == 0 ? 1U : 0U};
        case 'B': return isFromEnd(0) && p == 'M' ? "" : "B";
        case 'C': return codeC();
        case 'D': return n == 'G' && isSoft(at(2)) ? "J" : "T";
        case 'G': return codeG();
        case 'H': return (!isVowel(p) || isVowel(n)) && !in(p, "CSPTG") ? "H" : "";
        case 'K': return p == 'C' ? "" : "K";
        case 'P': return n == 'H' ? "F" : "P";
        case 'Q': return "K";
        case 'S': return codeS();
        case 'T': return codeT();
        case 'V': return "F";
        case 'W':
        case 'Y': return {letter, isVowel(n) ? 1U : 0U};
        case 'X': return "KS";
        case 'Z': return "S";
        default: return {letter, 1};
    }
}

}  // namespace

std::string EPA_Metaphone(std::string_view input) {
    std::string word = lettersOf(input);
    mendEnds(word);
    return Coder(std::move(word)).key();
}
