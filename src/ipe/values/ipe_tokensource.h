// IPE_TokenSource: whatever yields tokens. A tokenizer scans text on the fly, a program line replays stored
// tokens.
#pragma once

#include <string>

#include "ipe/object/ipe_type.h"
#include "ipe/values/ipe_token.h"

class IPE_TokenSource {
  public:
    virtual ~IPE_TokenSource() = default;

    // The line, and a marker of one blank per character before the current token followed by "?".
    virtual void describePosition(std::string& line, std::string& marker) const = 0;
    // File and line number; a bare tokenizer has no file and gives -1.
    virtual void getSourceFile(std::string& file, int64_t& line) const;
    virtual uint32_t getPosition() const { return position_; }
    virtual void setPosition(uint32_t position) { position_ = position; }
    virtual IPE_Object getIdentifier() = 0;
    virtual std::string getTokenText() = 0;
    // An IntType or FloatType, negated when asked. Numbers beyond 64 bits saturate.
    virtual IPE_Object getNumber(bool negate) = 0;
    virtual IPE_Object getString() = 0;
    // Moves to the next line; SystemError "IPE_TokenSource::getLineNumber" unless the source has lines.
    virtual void nextLine();
    virtual void next() = 0;
    virtual bool isAssignmentNext() = 0;

    uint8_t kind() const noexcept { return kind_; }
    uint8_t indent() const noexcept { return indent_; }
    const char* exceptionClass() const noexcept { return exceptionClass_; }

    // The line and the marker, joined by a line feed.
    std::string positionText() const;
    // Raises, in the source's exception class, "$decode\n$position".
    [[noreturn]] void syntaxError(std::string_view decode) const;
    // The current kind must be `kind`; moves past it.
    void expect(uint8_t kind);
    // Moves past one balanced group, or one token. A line's end inside a group is a syntax error.
    void skipOne();

  protected:
    uint8_t kind_ = TOKEN_NONE;
    uint8_t indent_ = 0;
    uint32_t position_ = 0;
    const char* exceptionClass_ = "IPESyntaxException";
};
