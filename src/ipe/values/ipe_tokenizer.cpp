// The scanner: one call of next() reads one token.
//
// The cursor walks bytes; text outside literals and comments is ASCII, and literals keep their UTF-8 bytes as
// they stand. The line holds no NUL, so the byte past its end reads as one and ends every loop.
#include "ipe/values/ipe_tokenizer.h"

#include <cstdlib>

#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

bool isLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isNameStart(char c) { return isLetter(c) || c == '_' || c == '|' || c == '~'; }
bool isNamePart(char c) { return isNameStart(c) || isDigit(c); }

int hexValue(char c) {
    if (isDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

void appendUtf8(std::string& text, char32_t c) {
    if (c < 0x80) {
        text += static_cast<char>(c);
    } else if (c < 0x800) {
        text += static_cast<char>(0xC0 | (c >> 6));
        text += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        text += static_cast<char>(0xE0 | (c >> 12));
        text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        text += static_cast<char>(0xF0 | (c >> 18));
        text += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        text += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// The path-safe form of one character in a literal: a space or a dot maps as if it ended a name.
char32_t pathSafe(unsigned char c) {
    if (c >= 1 && c <= 31 && c != 16) return 0xF000 + c;
    switch (c) {
        case '"': return 0xF020;
        case '*': return 0xF021;
        case '/': return 0xF022;
        case '<': return 0xF023;
        case '>': return 0xF024;
        case '?': return 0xF025;
        case '\\': return 0xF026;
        case '|': return 0xF027;
        case ' ': return 0xF028;
        case '.': return 0xF029;
        default: return c;
    }
}

}  // namespace

void IPE_Tokenizer::assign(std::string_view text) {
    line_.assign(text.substr(0, text.find('\0')));
    cursor_ = start_ = 0;
    atStart_ = true;
    kind_ = TOKEN_NONE;
}

void IPE_Tokenizer::continueWith(std::string text) {
    line_ = std::move(text);
    line_.resize(line_.find('\0') == std::string::npos ? line_.size() : line_.find('\0'));
    cursor_ = start_ = 0;
}

void IPE_Tokenizer::describePosition(std::string& line, std::string& marker) const {
    line = line_;
    marker.assign(start_ < line_.size() ? start_ : line_.size(), ' ');
    marker += '?';
}

IPE_Object IPE_Tokenizer::getIdentifier() { return IPE_String(text_); }
IPE_Object IPE_Tokenizer::getString() { return IPE_StringType::make(text_, tripleQuoted_); }

IPE_Object IPE_Tokenizer::getNumber(bool negate) {
    std::string text = (negate ? "-" : "") + text_;
    if (integer_) return IPE_Int(strtoll(text.c_str(), nullptr, 10));
    for (char& c : text)
        if (c == 'd' || c == 'D') c = 'e';
    return IPE_Float(strtod(text.c_str(), nullptr));
}

bool IPE_Tokenizer::isAssignmentNext() {
    size_t i = cursor_;
    while (i < line_.size() && (line_[i] == ' ' || line_[i] == '\t')) ++i;
    return i < line_.size() && line_[i] == '=';
}

void IPE_Tokenizer::back() {
    cursor_ = start_;
    if (start_ == 0) atStart_ = true;
}

void IPE_Tokenizer::next() {
    text_.clear();
    kind_ = TOKEN_NONE;
    comment_ = false;
    start_ = cursor_;
    if (json_)
        scanJson();
    else
        scanNormal();
}

void IPE_Tokenizer::illegalCharacter() {
    unsigned char c = static_cast<unsigned char>(at());
    if (c < 128)
        XPK_Raise("SyntaxError", "$char is an illegal character")
            .string("char", std::string(1, at()))
            .raise();
    XPK_Raise("SyntaxError", "chr( $char) is an illegal character").number("char", c).raise();
}

void IPE_Tokenizer::illegalEscape(char c) {
    XPK_Raise("SyntaxError", "Illegal escape $escape").string("escape", std::string("\\") + c).raise();
}

void IPE_Tokenizer::scanIndent() {
    uint8_t indent = 0;
    cursor_ = 0;
    while (at() == ' ' || at() == '\t') {
        if (at() == '\t') {
            start_ = cursor_;
            XPK_Raise("InterpreterException", "Tabs are not allowed in the source.\n$decode")
                .string("decode", positionText())
                .raise();
        }
        ++indent;
        ++cursor_;
    }
    atStart_ = false;
    indent_ = indent;
    if (at() == '\0') {
        kind_ = TOKEN_EOL;
        return;
    }
    if (indent % 4 != 0) {
        start_ = cursor_;
        XPK_Raise("InterpreterException", "Indent must be a multiple of 4 spaces.\n$decode")
            .string("decode", positionText())
            .raise();
    }
}

void IPE_Tokenizer::scanNormal() {
    if (atStart_) {
        scanIndent();
        if (kind_ == TOKEN_EOL) return;
    }
    while (at() == ' ' || at() == '\t') ++cursor_;
    start_ = cursor_;
    char c = at();
    auto take = [this](int bytes, uint8_t kind) {
        cursor_ += static_cast<size_t>(bytes);
        kind_ = kind;
    };
    if (c == '\0') {
        kind_ = TOKEN_EOL;
    } else if (c == '#') {
        kind_ = TOKEN_EOL;
        comment_ = true;
        text_.assign(line_, cursor_ + 1);
        cursor_ = line_.size();
    } else if (c == '"' || c == '\'') {
        bool triple = at(1) == c && at(2) == c;
        cursor_ += triple ? 3 : 1;
        scanQuoted(c, triple);
    } else if (isNameStart(c)) {
        scanName();
    } else if (isDigit(c)) {
        scanNumber();
        if (at() == 'L' || at() == 'l') ++cursor_;
    } else {
        switch (c) {
            case '=': at(1) == '=' ? take(2, TOKEN_EQ) : take(1, TOKEN_ASSIGN); break;
            case '<':
                if (at(1) == '=')
                    take(2, TOKEN_LE);
                else if (at(1) == '>')
                    take(2, TOKEN_NE);
                else
                    take(1, TOKEN_LT);
                break;
            case '>': at(1) == '=' ? take(2, TOKEN_GE) : take(1, TOKEN_GT); break;
            case '!':
                if (at(1) != '=') illegalCharacter();
                take(2, TOKEN_NE);
                break;
            case '%': take(1, TOKEN_PERCENT); break;
            case '(': take(1, TOKEN_LPAREN); break;
            case ')': take(1, TOKEN_RPAREN); break;
            case '*': take(1, TOKEN_STAR); break;
            case '+': take(1, TOKEN_PLUS); break;
            case ',': take(1, TOKEN_COMMA); break;
            case '-': take(1, TOKEN_MINUS); break;
            case '.': take(1, TOKEN_DOT); break;
            case '/': take(1, TOKEN_SLASH); break;
            case ':': take(1, TOKEN_COLON); break;
            case '@': take(1, TOKEN_AT); break;
            case '[': take(1, TOKEN_LBRACKET); break;
            case ']': take(1, TOKEN_RBRACKET); break;
            case '{': take(1, TOKEN_LBRACE); break;
            case '}': take(1, TOKEN_RBRACE); break;
            default: illegalCharacter();
        }
    }
}

void IPE_Tokenizer::scanName() {
    size_t end = cursor_;
    while (end < line_.size() && isNamePart(line_[end])) ++end;
    text_.assign(line_, cursor_, end - cursor_);
    cursor_ = end;
    kind_ = IPE_KeywordKind(text_);
}

void IPE_Tokenizer::scanNumber() {
    size_t begin = cursor_;
    integer_ = true;
    while (isDigit(at())) ++cursor_;
    if (at() == '.') {
        integer_ = false;
        ++cursor_;
        while (isDigit(at())) ++cursor_;
    }
    char c = at();
    if (c == 'd' || c == 'D' || c == 'e' || c == 'E') {
        integer_ = false;
        ++cursor_;
        if (at() == '+' || at() == '-') ++cursor_;
        while (isDigit(at())) ++cursor_;
    }
    text_.assign(line_, begin, cursor_ - begin);
    kind_ = TOKEN_NUMBER;
}

void IPE_Tokenizer::scanQuoted(char quote, bool triple) {
    tripleQuoted_ = triple;
    for (;;) {
        // Runs without a special byte are copied at once.
        size_t run = cursor_;
        while (run < line_.size() && line_[run] != quote && line_[run] != '\\') ++run;
        text_.append(line_, cursor_, run - cursor_);
        cursor_ = run;
        char c = at();
        if (c == '\0') {
            if (!triple) syntaxError("Unexpected end of line in a string");
            nextLine();
        } else if (c == '\\') {
            scanEscape(triple);
        } else if (!triple) {
            ++cursor_;
            break;
        } else if (at(1) == quote && at(2) == quote) {
            cursor_ += 3;
            break;
        } else {
            text_ += c;
            ++cursor_;
        }
    }
    kind_ = TOKEN_STRING;
}

void IPE_Tokenizer::scanEscape(bool triple) {
    char c = at(1);
    cursor_ += 2;
    switch (c) {
        case '\\':
        case '"':
        case '\'': text_ += c; break;
        case 'n':
            if (triple) XPK_Raise("SyntaxError", "Cannot have \\ n in  strings").raise();
            text_ += '\n';
            break;
        case 'r':
            if (triple) XPK_Raise("SyntaxError", "Cannot have \\ r in  strings").raise();
            text_ += '\r';
            break;
        case 't': text_ += '\t'; break;
        case 'p': {
            if (at() == '\0') syntaxError("Unexpected end of line in a string");
            unsigned char x = static_cast<unsigned char>(at());
            ++cursor_;
            if (x < 128)
                appendUtf8(text_, pathSafe(x));
            else
                text_ += static_cast<char>(x);
            break;
        }
        case 's': appendUtf8(text_, 0x10FFF1); break;
        case '{': appendUtf8(text_, 0x10FFF9); break;
        case '[': appendUtf8(text_, 0x10FFFA); break;
        case 'x': {
            int high = hexValue(at()), low = high < 0 ? -1 : hexValue(at(1));
            if (high < 0 || low < 0) syntaxError("Illegal hexadecimal escape");
            text_ += static_cast<char>(high * 16 + low);
            cursor_ += 2;
            break;
        }
        case 'u':
            --cursor_;
            scanUnicodeEscape();
            break;
        default:
            if (!isDigit(c)) illegalEscape(c);
            if (c > '7' || at() < '0' || at() > '7' || at(1) < '0' || at(1) > '7')
                syntaxError("Illegal octal escape");
            text_ += static_cast<char>(((c - '0') * 64 + (at() - '0') * 8 + (at(1) - '0')) & 0xFF);
            cursor_ += 2;
    }
}

uint32_t IPE_Tokenizer::scanHex4() {
    if (at() != 'u') XPK_Raise("SyntaxError", "Illegal unicode escape").raise();
    ++cursor_;
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i, ++cursor_) {
        int digit = hexValue(at());
        if (digit < 0) XPK_Raise("SyntaxError", "Illegal character in unicode escape").raise();
        value = value * 16 + static_cast<uint32_t>(digit);
    }
    return value;
}

void IPE_Tokenizer::scanUnicodeEscape() {
    uint32_t c = scanHex4();
    if (c == 0) XPK_Raise("SyntaxError", "\\u0000 is not allowed").raise();
    if (c >= 0xDC00 && c <= 0xDFFF) XPK_Raise("SyntaxError", "Invalid Unicode").raise();
    if (c >= 0xD800 && c <= 0xDBFF) {
        if (at() != '\\' || at(1) != 'u') XPK_Raise("SyntaxError", "Invalid Unicode").raise();
        ++cursor_;
        uint32_t low = scanHex4();
        if (low < 0xDC00 || low > 0xDFFF) XPK_Raise("SyntaxError", "Invalid Unicode").raise();
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
    }
    appendUtf8(text_, c);
}

void IPE_Tokenizer::scanJson() {
    atStart_ = false;
    while (at() == ' ' || at() == '\t' || at() == '\n' || at() == '\r') ++cursor_;
    start_ = cursor_;
    char c = at();
    if (c == '\0') {
        kind_ = TOKEN_EOL;
    } else if (c == '"') {
        ++cursor_;
        scanJsonString();
    } else if (isLetter(c)) {
        scanJsonName();
    } else if (isDigit(c)) {
        scanNumber();
    } else {
        switch (c) {
            case ',': kind_ = TOKEN_COMMA; break;
            case ':': kind_ = TOKEN_COLON; break;
            case '[': kind_ = TOKEN_LBRACKET; break;
            case ']': kind_ = TOKEN_RBRACKET; break;
            case '{': kind_ = TOKEN_LBRACE; break;
            case '}': kind_ = TOKEN_RBRACE; break;
            case '-':
                if (!isDigit(at(1))) illegalCharacter();
                kind_ = TOKEN_MINUS;
                break;
            default: illegalCharacter();
        }
        ++cursor_;
    }
}

void IPE_Tokenizer::scanJsonName() {
    size_t end = cursor_;
    while (end < line_.size() && isLetter(line_[end])) ++end;
    text_.assign(line_, cursor_, end - cursor_);
    cursor_ = end;
    kind_ = text_ == "null"    ? TOKEN_NULL
            : text_ == "true"  ? TOKEN_TRUE
            : text_ == "false" ? TOKEN_FALSE
                               : TOKEN_IDENTIFIER;
}

void IPE_Tokenizer::scanJsonString() {
    tripleQuoted_ = false;
    for (;;) {
        size_t run = cursor_;
        while (run < line_.size() && line_[run] != '"' && line_[run] != '\\' && line_[run] != '\n') ++run;
        text_.append(line_, cursor_, run - cursor_);
        cursor_ = run;
        char c = at();
        if (c == '\0' || c == '\n') syntaxError("Unexpected end of line in a string");
        ++cursor_;
        if (c == '"') break;
        char escape = at();
        ++cursor_;
        switch (escape) {
            case '\\':
            case '/':
            case '"':
            case '\'': text_ += escape; break;
            case 'n': text_ += '\n'; break;
            case 'r': text_ += '\r'; break;
            case 't': text_ += '\t'; break;
            case 'u':
                --cursor_;
                scanUnicodeEscape();
                break;
            default: illegalEscape(escape);
        }
    }
    kind_ = TOKEN_STRING;
}
