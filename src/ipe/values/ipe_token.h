// Token kinds. The numbers are stored in bundles and saved values: they never change.
#pragma once

#include <cstdint>
#include <string_view>

// clang-format off
enum IPE_TokenKind : uint8_t {
    TOKEN_NONE = 0, TOKEN_EOL = 1, TOKEN_EOF = 2,
    TOKEN_IDENTIFIER = 5, TOKEN_STRING = 6, TOKEN_NUMBER = 7,
    TOKEN_FLOAT = 8,  // in saved values only
    TOKEN_NULL = 9, TOKEN_TRUE = 10, TOKEN_FALSE = 11,
    TOKEN_LPAREN = 30, TOKEN_RPAREN = 31, TOKEN_LBRACE = 32, TOKEN_RBRACE = 33, TOKEN_LBRACKET = 34,
    TOKEN_RBRACKET = 35, TOKEN_DOT = 36, TOKEN_COLON = 37, TOKEN_COMMA = 38, TOKEN_AT = 39,
    TOKEN_DEF = 51, TOKEN_IMPORT = 52, TOKEN_FROM = 53, TOKEN_EXEC = 54, TOKEN_TRY = 55, TOKEN_EXCEPT = 56,
    TOKEN_RAISE = 57, TOKEN_FINALLY = 58, TOKEN_USING = 59, TOKEN_IF = 60, TOKEN_ELIF = 61, TOKEN_ELSE = 62,
    TOKEN_WHILE = 63, TOKEN_FOR = 64, TOKEN_BREAK = 65, TOKEN_CONTINUE = 66, TOKEN_RETURN = 67, TOKEN_CLASS = 68,
    TOKEN_ASSERT = 69, TOKEN_PRINT = 70, TOKEN_PASS = 71, TOKEN_WITH = 72,
    TOKEN_IS = 80, TOKEN_NOT = 81, TOKEN_IN = 82, TOKEN_DEL = 83, TOKEN_AND = 84, TOKEN_OR = 85, TOKEN_DIR = 86,
    TOKEN_AS = 87,
    TOKEN_ASSIGN = 101, TOKEN_PLUS = 102, TOKEN_MINUS = 103, TOKEN_STAR = 104, TOKEN_SLASH = 105, TOKEN_PERCENT = 106,
    TOKEN_EQ = 126, TOKEN_NE = 127, TOKEN_LT = 128, TOKEN_LE = 129, TOKEN_GT = 130, TOKEN_GE = 131,
};
// clang-format on

// The kind's text for messages; "?Unknown?" for the kinds that have none, `class` and `with` among them.
const char* IPE_TokenName(uint8_t kind);
// The keyword's kind, or TOKEN_IDENTIFIER.
IPE_TokenKind IPE_KeywordKind(std::string_view word);
