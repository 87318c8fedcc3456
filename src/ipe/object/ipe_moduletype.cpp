// Native objects with named methods.
//
// An adapter in its object's own attribute dictionary holds the object without a count. When such an adapter
// is read as a value it could outlive the object, so __getattr__ hands out a counted twin; the direct method
// call of the interpreter reads the adapter in place and makes no twin.
#include "ipe/object/ipe_moduletype.h"

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"

const char IPE_CallAdapter::TypeName[] = "CallAdapterType";
const char IPE_BridgeType::TypeName[] = "BridgeType";

IPE_CallAdapter::IPE_CallAdapter(EPA_Counted* target, int method, bool owned, bool notForUntrusted)
    : IPE_Type(TypeName), target_(target), method_(method), owned_(owned), notForUntrusted_(notForUntrusted) {
    if (owned_) target_->retain();
}

IPE_CallAdapter::~IPE_CallAdapter() {
    if (owned_) target_->release();
}

IPE_Object IPE_CallAdapter::__call__(const IPE_Arguments& arguments) {
    return static_cast<IPE_Type*>(target_)->__callmethod__(method_, arguments);
}

IPE_Object IPE_CallAdapter::__call_untrusted__(const IPE_Arguments& arguments) {
    if (notForUntrusted_) XPK_Raise("TypeError", "__call__ not available to untrusted code").raise();
    return __call__(arguments);
}

IPE_Object IPE_MethodOf(EPA_Counted* target, int method) {
    return IPE_New<IPE_CallAdapter>(target, method, true);
}

IPE_ModuleType::IPE_ModuleType(const char* typeName)
    : IPE_Type(typeName, IsContainer | IsNative), attributes_(new IPE_DictType) {
    attributes_->retain();
}

IPE_ModuleType::~IPE_ModuleType() { attributes_->release(); }

IPE_Object IPE_ModuleType::__getattr__(const IPE_Object& key, int) {
    IPE_Object value(attributes_->find(key));
    if (auto* adapter = value.tryAs<IPE_CallAdapter>();
        adapter && !adapter->owned() && adapter->target() == this)
        return IPE_New<IPE_CallAdapter>(adapter->target(), adapter->method(), true,
                                        adapter->notForUntrusted());
    return value;
}

void IPE_ModuleType::__setattr__(const IPE_Object& key, const IPE_Object& value) {
    attributes_->set(key, value);
}
void IPE_ModuleType::__delattr__(const IPE_Object& key) { attributes_->remove(key); }
IPE_Object IPE_ModuleType::__dir__() { return attributes_->keys(); }

void IPE_ModuleType::__import__(const IPE_Object& target) {
    for (uint32_t i = 0; i < attributes_->slots(); ++i)
        if (IPE_Type* key = attributes_->keyAt(i)) {
            IPE_Object name(key);
            target->__setattr__(name, __getattr__(name, 0));
        }
}

void IPE_ModuleType::bindMethods(std::initializer_list<IPE_Method> methods) {
    for (const IPE_Method& method : methods)
        attributes_->setName(IPE_StringType::intern(method.name),
                             IPE_New<IPE_CallAdapter>(this, method.number, false, method.notForUntrusted));
}
