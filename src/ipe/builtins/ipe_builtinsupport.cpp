// Reading arguments where no spec has checked them.
#include "ipe/builtins/ipe_builtinsupport.h"

#include "ipe/values/ipe_secrettype.h"
#include "ipe/values/ipe_stringtype.h"

const IPE_Object& IPE_RequiredArgument(const IPE_Arguments& arguments, int index) {
    if (index >= arguments.size()) XPK_Raise("IndexError", "tuple index out of range").raise();
    return arguments[index];
}

std::string IPE_NativeText(const IPE_Object& value) {
    if (value.is<IPE_StringType>() || value.is<IPE_SecretType>()) return value->c_str();
    return IPE_Object_Text(value);
}
