// The text is held plainly: a secret guards against showing by accident, not against a reader of memory.
#include "ipe/values/ipe_secrettype.h"

#include "ipe/object/ipe_moduletype.h"
#include "ipe/values/ipe_stringtype.h"

const char IPE_SecretType::TypeName[] = "SecretType";

namespace {
enum Method : int { String };
}

IPE_Object IPE_SecretType::__getattr__(const IPE_Object& key, int depth) {
    if (!key.isNull() && key->is_text("string")) return IPE_MethodOf(this, String);
    return IPE_Type::__getattr__(key, depth);
}

IPE_Object IPE_SecretType::__callmethod__(int method, const IPE_Arguments& arguments) {
    if (method != String) return {};
    arguments.check("", "string");
    return IPE_String(text_);
}

// Bytes count as signed here, which tells them from a string's hash beyond ASCII.
uint32_t IPE_SecretType::__hash__() {
    uint32_t h = 5381;
    for (char c : text_) h = h * 33 + static_cast<uint32_t>(static_cast<signed char>(c));
    return h;
}

int32_t IPE_SecretType::__len__() { return IPE_String(text_)->__len__(); }

void IPE_SecretType::__str__(IPE_PrintContext& context, IPE_StackList&) {
    context.out.append("---secret---");
}

void IPE_SecretType::__repr__(IPE_PrintContext& context, IPE_StackList&) {
    context.out.append(context.json ? "\"\"" : "''");
}
