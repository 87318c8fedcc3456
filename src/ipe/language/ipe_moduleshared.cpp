// Namespaces: those that scripts fill, and the one that is searched last.
#include "ipe/language/ipe_moduleshared.h"

#include <vector>

#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"

const char IPE_ModuleShared::TypeName[] = "IPE_ModuleShared";
const char IPE_ModuleBuiltin::TypeName[] = "IPE_ModuleBuitin";

namespace {

std::vector<IPE_Builtin>& builtinRows() {
    static std::vector<IPE_Builtin> rows;
    return rows;
}

// A built-in function with its spec checked before the call.
class BuiltinFunction final : public IPE_Type {
  public:
    explicit BuiltinFunction(const IPE_Builtin& row) : IPE_Type(IPE_BridgeType::TypeName), row_(row) {}
    IPE_Object __call__(const IPE_Arguments& arguments) override {
        if (row_.spec) arguments.check(row_.spec, row_.name);
        return row_.function(arguments);
    }

  private:
    const IPE_Builtin row_;
};

// Attributes of instances are copied one by one: functions and instances shared, namespaces left out.
void copyAttributes(IPE_DictType& from, IPE_DictType& to, IPE_StringType* newKey, IPE_StringType* initKey) {
    for (uint32_t i = 0; i < from.slots(); ++i) {
        IPE_Type* key = from.keyAt(i);
        if (!key || key == newKey || key == initKey) continue;
        IPE_Object value(from.valueAt(i));
        if (value.is<IPE_ModuleShared>()) continue;
        if (!value.is<IPE_CodeType>() && !value.is<IPE_OldClassType>()) value = IPE_Object_Copy(value);
        if (value) to.set(IPE_Object(key), std::move(value));
    }
}

IPE_Object callWithSelf(const IPE_Object& callee, const IPE_Object& self, const IPE_Arguments& arguments) {
    IPE_ArgumentBuffer buffer;
    buffer.push(self);
    for (const IPE_Object& argument : arguments) buffer.push(argument);
    buffer.keywords = arguments.keywordsOrNull();
    return callee->__call__(buffer.arguments());
}

}  // namespace

IPE_BuiltinTable::IPE_BuiltinTable(const IPE_Builtin* rows, size_t count) {
    builtinRows().insert(builtinRows().end(), rows, rows + count);
}

const IPE_Builtin* IPE_FindBuiltin(std::string_view name) {
    for (const IPE_Builtin& row : builtinRows())
        if (name == row.name) return &row;
    return nullptr;
}

// Making an instance: what __new__ returns is the object that the instance extends; the attributes of the
// namespace are copied; __init__ runs last and its result is dropped.
IPE_Object IPE_ModuleShared::__call__(const IPE_Arguments& arguments) {
    static IPE_StringType* const newKey = IPE_StringType::intern("__new__");
    static IPE_StringType* const initKey = IPE_StringType::intern("__init__");
    static IPE_StringType* const implementsKey = IPE_StringType::intern("__implements__");
    IPE_Object keep(this);
    IPE_Object self = IPE_New<IPE_OldClassType>(name_);
    auto* instance = self.as<IPE_OldClassType>();
    IPE_Object maker(attributes_->findName(newKey));
    IPE_Object initialiser(attributes_->findName(initKey));
    if (maker) {
        instance->dictionary().setName(newKey, maker);
        instance->extends_ = callWithSelf(maker, self, arguments);
        if (instance->extends_.is<IPE_NoneType>()) instance->extends_ = nullptr;
        instance->implements_ = maker->__getattr__(IPE_Object(implementsKey), 1);
    }
    copyAttributes(*attributes_, instance->dictionary(), newKey, initKey);
    if (initialiser) {
        instance->dictionary().setName(initKey, initialiser);
        callWithSelf(initialiser, self, arguments);
    }
    return self;
}

void IPE_ModuleShared::__repr__(IPE_PrintContext&, IPE_StackList&) {}

void IPE_ModuleShared::clear() {
    if (!attributes_->isCleared()) attributes_->clear();
}

IPE_ModuleBuiltin::IPE_ModuleBuiltin() : IPE_ModuleType(TypeName), tried_(IPE_NewDict()) {}

void IPE_ModuleBuiltin::__bind__() {
    for (const IPE_Builtin& row : builtinRows())
        attributes_->setName(IPE_StringType::intern(row.name), IPE_New<BuiltinFunction>(row));
}

IPE_Object IPE_ModuleBuiltin::__getattr__(const IPE_Object& key, int) {
    if (IPE_Type* value = attributes_->find(key)) return IPE_Object(value);
    return IPE_Object(findLazily(PyString_SafeCast(key)));
}

IPE_Type* IPE_ModuleBuiltin::findLazily(IPE_StringType* name) {
    static IPE_StringType* const hookKey = IPE_StringType::intern("__lazy_load__");
    if (attributes_->isCleared()) return nullptr;
    IPE_Object hook(attributes_->findName(hookKey));
    if (name->view() == hookKey->view() || tried_.as<IPE_DictType>()->findName(name)) return nullptr;
    if (hook) IPE_CallScript(hook, IPE_Object(name));
    tried_.as<IPE_DictType>()->setName(name, IPE_None());
    return hook ? attributes_->findName(name) : nullptr;
}

void IPE_ModuleBuiltin::clear() {
    if (!attributes_->isCleared()) attributes_->clear();
    tried_ = IPE_NewDict();
}
