// Instances: their own dictionary first, then what they extend, then what they implement, then their hook.
#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_moduleshared.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_depth.h"
#include "ipe/values/ipe_iterator.h"
#include "ipe/values/ipe_numbers.h"

const char IPE_OldClassType::TypeName[] = "ClassType";

namespace {

// The steps of one search through delegates; a cycle ends at the limit.
thread_local int dirDepth = 0;
struct DirScope {
    DirScope() {
        if (++dirDepth > IPE_OldClassType::MaximumDepth + 1) {
            --dirDepth;
            XPK_Raise("SandboxError", "Reached maximum call depth of $depth")
                .number("depth", IPE_OldClassType::MaximumDepth + 1)
                .string("stack", "")
                .raise();
        }
    }
    ~DirScope() { --dirDepth; }
};

IPE_StringType* key(const char* text) { return IPE_StringType::intern(text); }

}  // namespace

IPE_OldClassType::IPE_OldClassType(const IPE_Object& name)
    : IPE_Type(TypeName, IsContainer), dictionary_(new IPE_DictType) {
    static IPE_StringType* const moduleKey = key("__module__");
    static IPE_StringType* const nameKey = key("__name__");
    dictionary_->retain();
    std::string text = name ? std::string(name->c_str()) : std::string();
    size_t dot = text.rfind('.');
    dictionary_->setName(moduleKey, IPE_String(dot == std::string::npos ? "" : text.substr(0, dot)));
    dictionary_->setName(nameKey, IPE_String(dot == std::string::npos ? text : text.substr(dot + 1)));
}

IPE_OldClassType::~IPE_OldClassType() { dictionary_->release(); }

IPE_Object IPE_OldClassType::method(IPE_StringType* name, const char* message) {
    IPE_Object found(dictionary_->findName(name));
    // A delegate's method serves as well; the receiver stays this instance.
    if (!found && extends_) found = extends_->__getattr__(IPE_Object(name), 1);
    if (!found && implements_) {
        IPE_Iterator delegates(implements_);
        while (!found && delegates.hasMore()) found = delegates.next()->__getattr__(IPE_Object(name), 1);
    }
    if (!found) XPK_Raise("RuntimeError", message).raise();
    return found;
}

IPE_Object IPE_OldClassType::__call__(const IPE_Arguments& arguments) {
    IPE_DepthScope depth;
    static IPE_StringType* const name = key("__call__");
    return method(name, "The class does not have a __call__ method")->__call__(arguments);
}

IPE_Object IPE_OldClassType::__getattr__(const IPE_Object& name, int depth) {
    static IPE_StringType* const hookKey = key("__getattr__");
    if (depth > MaximumDepth)
        XPK_Raise("SandboxError", "Reached maximum call depth of $depth")
            .number("depth", depth)
            .string("stack", "")
            .raise();
    if (name->is_text("__extends__")) return extends_ ? extends_ : IPE_None();
    if (name->is_text("__implements__")) return implements_ ? implements_ : IPE_NewList();
    if (IPE_Type* value = dictionary_->find(name)) return IPE_Object(value);
    IPE_Object self(this);
    if (extends_)
        if (IPE_Object value = extends_->__getattr__(name, depth + 1)) return value;
    if (implements_) {
        IPE_Iterator delegates(implements_);
        while (delegates.hasMore())
            if (IPE_Object value = delegates.next()->__getattr__(name, depth + 1)) return value;
    }
    IPE_DepthScope scope;
    if (IPE_Type* hook = dictionary_->findName(hookKey))
        if (IPE_Object value = IPE_Call(IPE_Object(hook), self, name)) return value;
    if (depth == 0) XPK_Raise("RuntimeError", "The object does not contain the requested method").raise();
    return {};
}

IPE_Object IPE_OldClassType::__dir__() {
    DirScope scope;
    IPE_Object list = dictionary_->keys();
    auto* names = list.as<IPE_ListType>();
    auto add = [names](const IPE_Object& delegate) {
        IPE_Iterator more(delegate->__dir__());
        while (more.hasMore()) {
            IPE_Object name = more.next();
            bool known = std::string_view(name->c_str()).substr(0, 2) == "__";
            for (int32_t i = 0; !known && i < names->count(); ++i)
                known = IPE_Object_Equal(names->at(i), name);
            if (!known) names->append(name);
        }
    };
    if (extends_) add(extends_);
    if (implements_) {
        IPE_Iterator delegates(implements_);
        while (delegates.hasMore()) add(delegates.next());
    }
    return list;
}

IPE_Object IPE_OldClassType::__getitem__(const IPE_Object& item) {
    IPE_DepthScope depth;
    static IPE_StringType* const name = key("__getitem__");
    return IPE_Call(method(name, "The class does not have a __getitem__ method"), IPE_Object(this), item);
}

void IPE_OldClassType::__setitem__(const IPE_Object& item, const IPE_Object& value) {
    IPE_DepthScope depth;
    static IPE_StringType* const name = key("__setitem__");
    IPE_Call(method(name, "The class does not have a __setitem__ method"), IPE_Object(this), item, value);
}

void IPE_OldClassType::__delitem__(const IPE_Object& item) {
    IPE_DepthScope depth;
    static IPE_StringType* const name = key("__delitem__");
    IPE_Call(method(name, "The class does not have a __delitem__ method"), IPE_Object(this), item);
}

// The missing-method words of these two are those of __call__.
IPE_Object IPE_OldClassType::__enter__() {
    IPE_DepthScope depth;
    static IPE_StringType* const name = key("__enter__");
    return IPE_Call(method(name, "The class does not have a __call__ method"), IPE_Object(this));
}

void IPE_OldClassType::__exit__() {
    IPE_DepthScope depth;
    static IPE_StringType* const name = key("__exit__");
    IPE_Call(method(name, "The class does not have a __call__ method"), IPE_Object(this));
}

void IPE_OldClassType::__str__(IPE_PrintContext& context, IPE_StackList& stack) {
    IPE_DepthScope depth;
    static IPE_StringType* const name = key("__str__");
    IPE_Object writer(dictionary_->findName(name));
    if (!writer) return __repr__(context, stack);
    IPE_Object text = IPE_Call(writer, IPE_Object(this));
    if (text) IPE_Object__str__(text, context.out);
}

void IPE_OldClassType::__repr__(IPE_PrintContext& context, IPE_StackList&) {
    static IPE_StringType* const nameKey = key("__name__");
    IPE_Object name(dictionary_->findName(nameKey));
    context.out.append("\"@class ");
    if (name) IPE_Object__str__(name, context.out);
    context.out.append('"');
}
