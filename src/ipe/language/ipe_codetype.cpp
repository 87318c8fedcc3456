// The function object. Its call is the interpreter's; see ipe_calls.cpp.
#include "ipe/language/ipe_codetype.h"

#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"

const char IPE_CodeType::TypeName[] = "CodeType";

IPE_CodeType::IPE_CodeType(IPE_StringType* functionName, IPE_Interpreter& interpreter, IPE_Segment* segment,
                           IPE_ModuleShared* globals)
    : IPE_Type(TypeName, IsContainer),
      name(functionName),
      dict(IPE_NewDict()),
      segment(segment),
      interpreter_(&interpreter),
      globals_(globals) {
    globals_->retain();
}

IPE_CodeType::~IPE_CodeType() {
    if (globals_) globals_->release();
}

IPE_Object IPE_CodeType::__call__(const IPE_Arguments& arguments) {
    return interpreter_->call(*this, arguments);
}

IPE_Object IPE_CodeType::__getattr__(const IPE_Object& key, int) {
    auto orNone = [](const IPE_Object& value) { return value ? value : IPE_None(); };
    if (key->is_text("__doc__")) return orNone(documentation);
    if (key->is_text("__name__")) return orNone(name);
    if (key->is_text("__dict__")) return orNone(dict);
    if (key->is_text("__stop__")) return orNone(stop);
    if (!dict) return IPE_None();
    return orNone(IPE_Object(dict.as<IPE_DictType>()->find(key)));
}

void IPE_CodeType::__setattr__(const IPE_Object& key, const IPE_Object& value) {
    if (key->is_text("__stop__")) {
        stop = value.is<IPE_NoneType>() ? IPE_Object() : value;
    } else if (key->is_text("__name__")) {
        name = IPE_Object_AsString(value);
    } else if (key->is_text("__doc__")) {
        documentation = value;
    } else if (key->is_text("__dict__")) {
        PyDict_SafeCast(value);
        dict = value;
    } else {
        if (!dict) dict = IPE_NewDict();
        dict.as<IPE_DictType>()->set(key, value);
    }
}

IPE_Object IPE_CodeType::source() const {
    return IPE_TupleOf({IPE_String(segment->file), IPE_Int(segment->lines[defLine].source)});
}

IPE_Object IPE_CodeType::twin() const {
    XPK_Assert(globals_);
    IPE_Object object = IPE_New<IPE_CodeType>(name.as<IPE_StringType>(), *interpreter_, segment, globals_);
    auto& copy = *object.as<IPE_CodeType>();
    copy.parameters = parameters;
    copy.codeHint = codeHint;
    copy.layoutCapacity = layoutCapacity;
    copy.wide = wide;
    copy.plain = plain;
    copy.varargs = varargs;
    copy.kwargs = kwargs;
    copy.returnType = returnType;
    copy.documentation = documentation;
    copy.stop = stop;
    copy.defLine = defLine;
    copy.line = line;
    return object;
}

void IPE_CodeType::__repr__(IPE_PrintContext& context, IPE_StackList& stack) {
    source()->__repr__(context, stack);
}

bool IPE_CodeType::__stop__(IPE_Frame&) {
    if (!stop) return false;
    if (auto* number = stop.tryAs<IPE_IntType>()) return number->value != 0;
    IPE_Object hook = stop;
    IPE_Object answer = IPE_CallScript(hook);
    return answer && answer->__int__() != 0;
}

void IPE_CodeType::clear() {
    IPE_Object keep(this);
    parameters.clear();
    returnType = stop = dict = nullptr;
    if (IPE_ModuleShared* globals = std::exchange(globals_, nullptr)) globals->release();
}
