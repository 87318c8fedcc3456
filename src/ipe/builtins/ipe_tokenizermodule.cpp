// The module `ipe.tokenizer`: the language's own scanner for scripts.
//
// An object scans one text. `next` moves and gives the token, `token` and `tokens` give it again, `back` puts
// the cursor before it, so that the next `next` gives it once more.
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_tokenizer.h"

namespace {

class TokenizerType final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    TokenizerType() : IPE_ModuleType(TypeName) {}

    void __bind__() override {
        bindMethods(
            {{"assign", Assign}, {"next", Next}, {"back", Back}, {"token", Token}, {"tokens", Tokens}});
    }

    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override {
        switch (method) {
            case Assign:
                arguments.check("s", "assign");
                tokenizer_.assign(arguments.text(0));
                tokenizer_.next();
                return {};
            case Next:
                arguments.check("", "next");
                tokenizer_.next();
                return token();
            case Back:
                arguments.check("", "back");
                tokenizer_.back();
                return {};
            case Token: arguments.check("", "token"); return token();
            case Tokens: arguments.check("", "tokens"); return token();
        }
        return {};
    }

  private:
    enum { Assign, Next, Back, Token, Tokens };

    IPE_Object token() {
        switch (tokenizer_.kind()) {
            case TOKEN_IDENTIFIER: return tokenizer_.getIdentifier();
            case TOKEN_STRING: return tokenizer_.getString();
            case TOKEN_NUMBER: return tokenizer_.getNumber(false);
            default: return IPE_String(IPE_TokenName(tokenizer_.kind()));
        }
    }

    IPE_Tokenizer tokenizer_;
};

const char TokenizerType::TypeName[] = "TokenizerType";

IPE_Object create(const IPE_Arguments& arguments) {
    arguments.check("", "create");
    IPE_Object object = IPE_New<TokenizerType>();
    object->__bind__();
    return object;
}

const IPE_NativeModule registered("ipe.tokenizer", "create", create);

}  // namespace
