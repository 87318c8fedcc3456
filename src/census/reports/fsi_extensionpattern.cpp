// A recogniser for one shape: `\.` or `[.]`, one set of characters that leaves out the full stop, with a
// quantifier, in one group or none, and `$`, `\z` or `\Z`. A match then begins at the last full stop, since
// none may follow it, and ends at the end.
#include "census/reports/fsi_extensionpattern.h"

namespace {

class Reader {
  public:
    explicit Reader(std::string_view text) : text_(text) {}
    bool done() const { return text_.empty(); }
    bool take(std::string_view word) {
        if (!text_.starts_with(word)) return false;
        text_.remove_prefix(word.size());
        return true;
    }
    // A set of characters without the full stop.
    bool takeSet() {
        for (std::string_view letter : {"\\w", "\\d", "\\s"})
            if (take(letter)) return true;
        if (!take("[")) return false;
        bool excludes = take("^"), hasStop = false;
        for (bool first = true; !text_.empty(); first = false) {
            char c = text_.front();
            if (c == ']' && !first) {
                take("]");
                return excludes == hasStop;
            }
            // Escapes, named sets and ranges are simple ones or none: a range could span the full stop.
            if (c == '[' || c == '\\' || c == ']') return false;
            if (text_.size() > 2 && text_[1] == '-' && text_[2] != ']') {
                if (!isAlphanumeric(c) || !isAlphanumeric(text_[2])) return false;
                text_.remove_prefix(3);
                continue;
            }
            hasStop = hasStop || c == '.';
            text_.remove_prefix(1);
        }
        return false;
    }
    void takeQuantifier() {
        if (!take("+") && !take("*") && !take("?")) takeCounts();
        if (!take("?")) take("+");
    }

  private:
    static bool isAlphanumeric(char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    }
    void takeCounts() {
        size_t end = text_.find('}');
        if (text_.empty() || text_.front() != '{' || end == std::string_view::npos || end == 1) return;
        std::string_view counts = text_.substr(1, end - 1);
        if (counts.front() == ',' || counts.find_first_not_of("0123456789,") != std::string_view::npos)
            return;
        text_.remove_prefix(end + 1);
    }
    std::string_view text_;
};

}  // namespace

bool FSI_IsExtensionPattern(std::string_view pattern) {
    Reader reader(pattern);
    if (!reader.take("\\.") && !reader.take("[.]")) return false;
    bool group = reader.take("(?:") || reader.take("(");
    if (!reader.takeSet()) return false;
    reader.takeQuantifier();
    if (group && !reader.take(")")) return false;
    if (!reader.take("$") && !reader.take("\\z") && !reader.take("\\Z")) return false;
    return reader.done();
}
