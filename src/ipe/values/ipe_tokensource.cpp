// What every token source shares: its errors and the skipping of balanced groups.
#include "ipe/values/ipe_tokensource.h"

void IPE_TokenSource::getSourceFile(std::string& file, int64_t& line) const {
    file.clear();
    line = -1;
}

void IPE_TokenSource::nextLine() { XPK_Raise("SystemError", "IPE_TokenSource::getLineNumber").raise(); }

std::string IPE_TokenSource::positionText() const {
    std::string line, marker;
    describePosition(line, marker);
    return line + "\n" + marker;
}

void IPE_TokenSource::syntaxError(std::string_view decode) const {
    XPK_Raise(exceptionClass_, "$decode\n$position")
        .string("decode", decode)
        .string("position", positionText())
        .raise();
}

void IPE_TokenSource::expect(uint8_t kind) {
    if (kind_ != kind) syntaxError(positionText() + " Expecting " + IPE_TokenName(kind));
    next();
}

void IPE_TokenSource::skipOne() {
    int depth = 0;
    do {
        switch (kind_) {
            case TOKEN_LPAREN:
            case TOKEN_LBRACKET:
            case TOKEN_LBRACE: ++depth; break;
            case TOKEN_RPAREN:
            case TOKEN_RBRACKET:
            case TOKEN_RBRACE: --depth; break;
            case TOKEN_EOL:
            case TOKEN_EOF:
                if (depth > 0) syntaxError("Unexpected end of line");
                break;
            default: break;
        }
        next();
    } while (depth > 0);
}
