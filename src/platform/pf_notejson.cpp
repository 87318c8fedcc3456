// A JSON reader for one flat object. Values that nest are checked for form and dropped, with a bound on the
// depth.

#include "platform/pf_notejson.h"

#include <cstdint>

#include "platform/pf_paths.h"

namespace platform {

namespace {

constexpr int kDeepest = 32;

class Reader {
  public:
    explicit Reader(std::string_view text) : text_(text) {}

    bool object(std::map<std::string, std::string>& members) {
        return members_(0, &members) && (blank(), at_ == text_.size());
    }

  private:
    void blank() {
        while (at_ < text_.size() && std::string_view(" \t\r\n").find(text_[at_]) != std::string_view::npos)
            ++at_;
    }

    bool take(char c) {
        blank();
        if (at_ >= text_.size() || text_[at_] != c) return false;
        ++at_;
        return true;
    }

    // An object; its scalar members go to `members` unless that is null.
    bool members_(int depth, std::map<std::string, std::string>* members) {
        if (depth > kDeepest || !take('{')) return false;
        if (take('}')) return true;
        do {
            std::string key, value;
            bool scalar = false;
            blank();
            if (!string(key) || !take(':') || !this->value(depth + 1, value, scalar)) return false;
            if (members && scalar) members->insert_or_assign(key, value);
        } while (take(','));
        return take('}');
    }

    bool value(int depth, std::string& out, bool& scalar) {
        blank();
        scalar = false;
        if (at_ >= text_.size()) return false;
        if (text_[at_] == '{') return members_(depth, nullptr);
        if (text_[at_] == '[') return list(depth);
        scalar = true;
        if (text_[at_] == '"') return string(out);
        size_t start = at_;
        while (at_ < text_.size() &&
               std::string_view("+-.0123456789abcdefghijklmnopqrstuvwxyzE").find(text_[at_]) !=
                   std::string_view::npos) {
            ++at_;
        }
        out = text_.substr(start, at_ - start);
        return out == "true" || out == "false" || out == "null" ||
               (!out.empty() && (out[0] == '-' || (out[0] >= '0' && out[0] <= '9')));
    }

    bool list(int depth) {
        if (depth > kDeepest || !take('[')) return false;
        if (take(']')) return true;
        do {
            std::string value;
            bool scalar = false;
            if (!this->value(depth + 1, value, scalar)) return false;
        } while (take(','));
        return take(']');
    }

    bool string(std::string& out) {
        if (at_ >= text_.size() || text_[at_] != '"') return false;
        for (++at_; at_ < text_.size();) {
            char c = text_[at_];
            if (c == '"') {
                ++at_;
                return true;
            }
            if (c == '\\') {
                if (!escape(out)) return false;
                continue;
            }
            int code = decodeUtf8(text_, at_);
            if (code < 0x20) return false;
            appendUtf8(out, static_cast<char32_t>(code));
        }
        return false;
    }

    bool hex(uint32_t& code) {
        if (text_.size() - at_ < 4) return false;
        code = 0;
        for (int i = 0; i < 4; ++i) {
            char c = text_[at_++];
            size_t digit = std::string_view("0123456789abcdefABCDEF").find(c);
            if (digit == std::string_view::npos) return false;
            code = code << 4 | static_cast<uint32_t>(digit > 15 ? digit - 6 : digit);
        }
        return true;
    }

    bool escape(std::string& out) {
        if (text_.size() - at_ < 2) return false;
        char c = text_[at_ + 1];
        at_ += 2;
        if (c != 'u') {
            size_t which = std::string_view("\"\\/bfnrt").find(c);
            if (which == std::string_view::npos) return false;
            out.push_back("\"\\/\b\f\n\r\t"[which]);
            return true;
        }
        uint32_t code = 0, low = 0;
        if (!hex(code)) return false;
        if ((code & 0xFC00) == 0xD800 && text_.substr(at_, 2) == "\\u") {
            size_t back = at_;
            at_ += 2;
            if (!hex(low)) return false;
            if ((low & 0xFC00) == 0xDC00) {
                code = 0x10000 + ((code & 0x3FF) << 10) + (low & 0x3FF);
            } else {
                at_ = back;
            }
        }
        appendUtf8(out, (code & 0xFFFFF800) == 0xD800 ? 0xFFFD : code);
        return true;
    }

    std::string_view text_;
    size_t at_ = 0;
};

}  // namespace

bool parseNoteJson(std::string_view text, std::map<std::string, std::string>& members) {
    std::map<std::string, std::string> found;
    if (!Reader(text).object(found)) return false;
    members.merge(found);
    return true;
}

}  // namespace platform
