// The one way from native code into scripts.
#include "ipe/language/ipe_scriptcall.h"

#include "ipe/language/ipe_interpreter.h"

IPE_Object IPE_CallScript(const IPE_Object& callee, const IPE_Arguments& arguments) {
    if (!callee.is<IPE_OldClassType>()) return callee->__call__(arguments);
    IPE_ArgumentBuffer buffer;
    buffer.push(callee);
    for (const IPE_Object& argument : arguments) buffer.push(argument);
    buffer.keywords = arguments.keywordsOrNull();
    return callee->__call__(buffer.arguments());
}

IPE_Object IPE_CallScriptMethod(const IPE_Object& object, const char* name, const IPE_Arguments& arguments,
                                bool mustExist) {
    IPE_Object key(IPE_StringType::intern(name));
    IPE_Object method;
    if (!mustExist && object.is<IPE_OldClassType>())
        method = object->__getattr__(key, 1);  // null rather than an error when absent
    else
        method = object->__getattr__(key, 0);
    if (!method) {
        if (mustExist) XPK_Raise("AttributeError", "$key").string("key", name).raise();
        return {};
    }
    if (!object.is<IPE_OldClassType>()) return method->__call__(arguments);
    IPE_ArgumentBuffer buffer;
    buffer.push(object);
    for (const IPE_Object& argument : arguments) buffer.push(argument);
    buffer.keywords = arguments.keywordsOrNull();
    return method->__call__(buffer.arguments());
}
