// One table gives names and keywords.
#include "ipe/values/ipe_token.h"

namespace {

struct Row {
    uint8_t kind;
    const char* name;
    bool keyword;
    bool shown;
};
constexpr Row rows[] = {
    {TOKEN_EOL, "[EOL]", false, true},
    {TOKEN_EOF, "[EOF]", false, true},
    {TOKEN_NULL, "None", true, true},
    {TOKEN_TRUE, "True", true, true},
    {TOKEN_FALSE, "False", true, true},
    {TOKEN_LPAREN, "(", false, true},
    {TOKEN_RPAREN, ")", false, true},
    {TOKEN_LBRACE, "{", false, true},
    {TOKEN_RBRACE, "}", false, true},
    {TOKEN_LBRACKET, "[", false, true},
    {TOKEN_RBRACKET, "]", false, true},
    {TOKEN_DOT, ".", false, true},
    {TOKEN_COLON, ":", false, true},
    {TOKEN_COMMA, ",", false, true},
    {TOKEN_AT, "@", false, true},
    {TOKEN_DEF, "def", true, true},
    {TOKEN_IMPORT, "import", true, true},
    {TOKEN_FROM, "from", true, true},
    {TOKEN_EXEC, "exec", true, true},
    {TOKEN_TRY, "try", true, true},
    {TOKEN_EXCEPT, "except", true, true},
    {TOKEN_RAISE, "raise", true, true},
    {TOKEN_FINALLY, "finally", true, true},
    {TOKEN_USING, "using", true, true},
    {TOKEN_IF, "if", true, true},
    {TOKEN_ELIF, "elif", true, true},
    {TOKEN_ELSE, "else", true, true},
    {TOKEN_WHILE, "while", true, true},
    {TOKEN_FOR, "for", true, true},
    {TOKEN_BREAK, "break", true, true},
    {TOKEN_CONTINUE, "continue", true, true},
    {TOKEN_RETURN, "return", true, true},
    {TOKEN_CLASS, "class", true, false},
    {TOKEN_ASSERT, "assert", true, true},
    {TOKEN_PRINT, "print", true, true},
    {TOKEN_PASS, "pass", true, true},
    {TOKEN_WITH, "with", true, false},
    {TOKEN_IS, "is", true, true},
    {TOKEN_NOT, "not", true, true},
    {TOKEN_IN, "in", true, true},
    {TOKEN_DEL, "del", true, true},
    {TOKEN_AND, "and", true, true},
    {TOKEN_OR, "or", true, true},
    {TOKEN_DIR, "dir", true, true},
    {TOKEN_AS, "as", true, true},
    {TOKEN_ASSIGN, "=", false, true},
    {TOKEN_PLUS, "+", false, true},
    {TOKEN_MINUS, "-", false, true},
    {TOKEN_STAR, "*", false, true},
    {TOKEN_SLASH, "/", false, true},
    {TOKEN_PERCENT, "%", false, true},
    {TOKEN_EQ, "==", false, true},
    {TOKEN_NE, "<>", false, true},
    {TOKEN_LT, "<", false, true},
    {TOKEN_LE, "<=", false, true},
    {TOKEN_GT, ">", false, true},
    {TOKEN_GE, ">=", false, true},
};

}  // namespace

const char* IPE_TokenName(uint8_t kind) {
    for (const Row& row : rows)
        if (row.kind == kind) return row.shown ? row.name : "?Unknown?";
    return "?Unknown?";
}

IPE_TokenKind IPE_KeywordKind(std::string_view word) {
    if (word.size() < 2 || word.size() > 8) return TOKEN_IDENTIFIER;
    for (const Row& row : rows)
        if (row.keyword && word == row.name) return static_cast<IPE_TokenKind>(row.kind);
    return TOKEN_IDENTIFIER;
}
