// A recursive reader over the tokenizer. Values are built bottom-up; nothing is looked up.
#include "ipe/values/ipe_literal.h"

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_packed.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_tokenizer.h"

namespace {

constexpr int MaximumNesting = 1000;

class Reader {
  public:
    explicit Reader(IPE_TokenSource& source) : source_(source) {}
    IPE_Object value();

  private:
    template <class Sequence>
    IPE_Object sequence(uint8_t close);
    IPE_Object dictionary();
    // After an element: steps over a comma; true when the group goes on.
    bool more(uint8_t close);
    void begin() {
        if (++depth_ > MaximumNesting) source_.syntaxError("Nested too deeply");
        source_.next();
    }
    IPE_TokenSource& source_;
    int depth_ = 0;
};

bool Reader::more(uint8_t close) {
    if (source_.kind() == TOKEN_COMMA) {
        source_.next();
        return source_.kind() != close;
    }
    if (source_.kind() != close) source_.syntaxError("Expecting , or " + std::string(IPE_TokenName(close)));
    return false;
}

template <class Sequence>
IPE_Object Reader::sequence(uint8_t close) {
    begin();
    IPE_Object result = IPE_New<Sequence>();
    if (source_.kind() != close) {
        do {
            result.template as<Sequence>()->append(value());
        } while (more(close));
    }
    source_.next();
    --depth_;
    return result;
}

IPE_Object Reader::dictionary() {
    begin();
    IPE_Object result = IPE_NewDict();
    if (source_.kind() != TOKEN_RBRACE) {
        do {
            IPE_Object key = value();
            source_.expect(TOKEN_COLON);
            result.as<IPE_DictType>()->set(key, value());
        } while (more(TOKEN_RBRACE));
    }
    source_.next();
    --depth_;
    return result;
}

IPE_Object Reader::value() {
    IPE_Object result;
    switch (source_.kind()) {
        case TOKEN_STRING: result = source_.getString(); break;
        case TOKEN_NUMBER: result = source_.getNumber(false); break;
        case TOKEN_NULL: result = IPE_None(); break;
        case TOKEN_TRUE: result = IPE_True(); break;
        case TOKEN_FALSE: result = IPE_False(); break;
        case TOKEN_MINUS:
            source_.next();
            if (source_.kind() != TOKEN_NUMBER) source_.syntaxError("Expecting a number");
            result = source_.getNumber(true);
            break;
        case TOKEN_LPAREN: return sequence<IPE_TupleType>(TOKEN_RPAREN);
        case TOKEN_LBRACKET: return sequence<IPE_ListType>(TOKEN_RBRACKET);
        case TOKEN_LBRACE: return dictionary();
        default: source_.syntaxError("Expecting a value");
    }
    source_.next();
    return result;
}

}  // namespace

IPE_Object IPE_ReadLiteral(IPE_TokenSource& source) { return Reader(source).value(); }

IPE_Object parse_literal(std::string_view text, bool packed, bool json) {
    std::string unpacked;
    if (packed || (!text.empty() && text[0] == '~')) {
        if (!text.empty() && text[0] == '~') text.remove_prefix(1);
        unpacked = IPE_Unpack(text);
        text = unpacked;
    }
    IPE_Tokenizer tokenizer(json);
    tokenizer.assign(text);
    tokenizer.next();
    return Reader(tokenizer).value();
}
