// IPE_Tokenizer: scans one line of text into tokens, in the normal or the JSON mode.
//
// Indent is counted in blanks, must be a multiple of 4 on lines that hold a token, and wraps at 256. Every
// lexical fault raises (InterpreterException, SyntaxError, IPESyntaxException) and leaves the source where it
// stood.
#pragma once

#include <string>
#include <string_view>

#include "ipe/values/ipe_tokensource.h"

class IPE_Tokenizer : public IPE_TokenSource {
  public:
    explicit IPE_Tokenizer(bool json = false) : json_(json) {}
    // Sets the line and clears the cursors; the text is cut at its first NUL. Scan the first token with
    // next().
    void assign(std::string_view text);

    void describePosition(std::string& line, std::string& marker) const override;
    IPE_Object getIdentifier() override;
    std::string getTokenText() override { return text_; }
    IPE_Object getNumber(bool negate) override;
    IPE_Object getString() override;
    void next() override;
    bool isAssignmentNext() override;

    // Puts the cursor back to the start of the current token.
    void back();
    bool isInteger() const noexcept { return integer_; }
    bool isTripleQuoted() const noexcept { return tripleQuoted_; }
    // The current token's text, valid until the next scan.
    const std::string& text() const noexcept { return text_; }
    // At the end of a line: the text behind `#`, and whether there was a comment.
    bool hasComment() const noexcept { return comment_; }

  protected:
    // Replaces the line in the middle of a triple-quoted literal.
    void continueWith(std::string text);

  private:
    void scanNormal();
    void scanJson();
    void scanIndent();
    void scanName();
    void scanJsonName();
    void scanNumber();
    void scanQuoted(char quote, bool triple);
    void scanJsonString();
    void scanEscape(bool triple);
    void scanUnicodeEscape();
    uint32_t scanHex4();
    [[noreturn]] void illegalCharacter();
    [[noreturn]] void illegalEscape(char c);
    char at(size_t offset = 0) const noexcept {
        return cursor_ + offset < line_.size() ? line_[cursor_ + offset] : '\0';
    }

    std::string line_;
    std::string text_;
    size_t cursor_ = 0;
    size_t start_ = 0;
    bool atStart_ = true;  // the indent has not been measured yet
    bool json_;
    bool integer_ = false;
    bool tripleQuoted_ = false;
    bool comment_ = false;
};
