// Built-in functions on objects: attributes, copies, the extended object, and the inspection object.
//
// `getattr` with a default has to tell "there is no such attribute" from a fault in a script hook that looks
// for it, so it takes the default for the look-up's own messages alone.
#include "ipe/builtins/ipe_builtinsupport.h"
#include "ipe/builtins/ipe_smartinspect.h"
#include "ipe/language/ipe_exceptiontype.h"

namespace {

using Arguments = const IPE_Arguments&;

IPE_Object builtinSuper(Arguments a) {
    auto* instance = a[0].tryAs<IPE_OldClassType>();
    if (!instance) {
        const char* name = a[0].typeName();
        XPK_Raise("RuntimeError", "A class instance must be passed to super, not $foo")
            .string("foo", name ? name : "")
            .raise();
    }
    if (!instance->extends()) XPK_Raise("RuntimeError", "The class does not have a super").raise();
    return instance->extends();
}

bool saysAbsent(const XPK_Exception& exception, const IPE_Object& object) {
    const std::string& type = exception.type();
    if (type == "AttributeNotFoundException") return true;
    if (type == "KeyError") return object.is<IPE_ExceptionType>();
    return type == "RuntimeError" && object.is<IPE_OldClassType>() &&
           exception.record().show == "The object does not contain the requested method";
}

IPE_Object builtinGetattr(Arguments a) {
    if (a.size() > 2) {
        try {
            IPE_Object value = a[0]->__getattr__(a[1], 0);
            return value ? value : a[2];
        } catch (const XPK_Exception& exception) {
            if (!saysAbsent(exception, a[0])) throw;
            return a[2];
        }
    }
    IPE_Object value = a[0]->__getattr__(a[1], 0);
    if (!value) XPK_Raise("AttributeError", "AttributeErrror $key").string("key", a.text(1)).raise();
    return value;
}

IPE_Object builtinSetattr(Arguments a) {
    a[0]->__setattr__(a[1], a[2]);
    return {};
}

IPE_Object builtinDelattr(Arguments a) {
    a[0]->__delattr__(a[1]);
    return {};
}

IPE_Object builtinClone(Arguments a) { return IPE_Object_Copy(a[0]); }
IPE_Object builtinObjectstrip(Arguments a) { return IPE_Object_Strip(a[0]); }

IPE_Object builtinSmartInspect(Arguments a) {
    if (a[0]->is_text("get")) return IPE_SmartInspect();
    XPK_Raise("RuntimeError", "Unknown option passed to smart_inspect: $name")
        .string("name", IPE_Object_Text(a[0]))
        .raise();
}

// `lang` and `tag` are names that scripts may call for effect of the tools that read them; here they do
// nothing.
IPE_Object builtinNothing(Arguments) { return {}; }

const IPE_Builtin Rows[] = {
    {"super", "o", builtinSuper},
    {"getattr", "os|o", builtinGetattr},
    {"setattr", "oso", builtinSetattr},
    {"delattr", "os", builtinDelattr},
    {"clone", "o", builtinClone},
    {"objectstrip", "o", builtinObjectstrip},
    {"lang", nullptr, builtinNothing},
    {"tag", nullptr, builtinNothing},
    {"smart_inspect", "o", builtinSmartInspect},
};
const IPE_BuiltinTable registered(Rows);

}  // namespace
