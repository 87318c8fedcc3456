// IPE_SecretType: a string that travels through variables, print and logs without showing.
#pragma once

#include <string>
#include <string_view>

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"

// Prints as "---secret---", its representation is an empty quoted text; c_str and the method `string` give
// the real text. Immutable; shared between threads freely.
class IPE_SecretType final : public IPE_Type {
  public:
    static const char TypeName[];
    explicit IPE_SecretType(std::string_view text) : IPE_Type(TypeName), text_(text) {}
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    uint32_t __hash__() override;
    IPE_Object __copy__() override { return IPE_Object(this); }
    int32_t __len__()
        override;  // in code points; UnicodeError "Conversion Failue" for text that is not UTF-8
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    const char* c_str() override { return text_.c_str(); }
    IPE_Object __getattr__(const IPE_Object& key, int depth) override;

  private:
    std::string text_;
};
