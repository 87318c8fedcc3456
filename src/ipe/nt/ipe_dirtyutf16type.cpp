// Raw UTF-16 as a value. The text is made anew each time it is asked for: names are shown rarely and kept by
// the million.

#include "ipe/nt/ipe_dirtyutf16type.h"

#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_unicode.h"

const char IPE_DirtyUTF16Type::TypeName[] = "IPE_DirtyUTF16Type";

std::string IPE_SanitisedText(std::u16string_view units) {
    EPA_Unicode text;
    text.setUtf16(units.data(), units.size());
    text.sanitise();
    return text.toUtf8();
}

int IPE_DirtyUTF16Type::__cmp__(const IPE_Object& other) {
    auto* right = other.tryAs<IPE_DirtyUTF16Type>();
    if (!right) return 1;
    int order = units_.compare(right->units_);
    return order < 0 ? -1 : order > 0;
}

uint32_t IPE_DirtyUTF16Type::__hash__() {
    uint32_t hash = 5381;
    for (char16_t unit : units_) hash = hash * 33 + unit;
    return hash;
}

void IPE_DirtyUTF16Type::__str__(IPE_PrintContext& context, IPE_StackList&) {
    context.out.append(IPE_SanitisedText(units_));
}

void IPE_DirtyUTF16Type::__repr__(IPE_PrintContext& context, IPE_StackList& stack) {
    IPE_String(IPE_SanitisedText(units_))->__repr__(context, stack);
}
