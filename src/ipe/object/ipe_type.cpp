// The defaults of the type protocol and the helpers over handles.
//
// A default raises and never returns a null in place of an error, except __copy__, where null means "cannot
// be copied".
#include "ipe/object/ipe_type.h"

#include "ipe/object/ipe_arguments.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

IPE_StackList::~IPE_StackList() {
    while (count_ > 0) items_[--count_]->release();
}

void IPE_StackList::push(EPA_Counted* object) {
    if (!object) XPK_Raise("RuntimeError", "Attempt to push a null object").raise();
    if (count_ >= Limit) XPK_Raise("RuntimeError", "Maximum stack depth exceded").raise();
    object->retain();
    items_[count_++] = object;
}

void IPE_StackList::pop() {
    if (count_ == 0) XPK_Raise("RuntimeError", "Attempt to pop on an empty stack").raise();
    items_[--count_]->release();
}

bool IPE_StackList::contains(const EPA_Counted* object) const noexcept {
    for (int i = 0; i < count_; ++i)
        if (items_[i] == object) return true;
    return false;
}

namespace {

[[noreturn]] void unsupported(const char* operation) {
    XPK_Raise("TypeError", std::string(operation) + " is not supported").raise();
}

const char* nameOf(const EPA_Counted* object) { return object->typeName() ? object->typeName() : ""; }

}  // namespace

IPE_Object IPE_Type::__add__(const IPE_Object&) { unsupported("__add__"); }
IPE_Object IPE_Type::__sub__(const IPE_Object&) { unsupported("__sub__"); }
IPE_Object IPE_Type::__mul__(const IPE_Object&) { unsupported("__mul__"); }
IPE_Object IPE_Type::__div__(const IPE_Object&) { unsupported("__div__"); }
IPE_Object IPE_Type::__format__(const IPE_Object&) { unsupported("__format__"); }

IPE_Object IPE_Type::__call__(const IPE_Arguments&) {
    XPK_Raise("ObjectNotCallableException", "The $type is not callable")
        .string("type", nameOf(this))
        .string("name", "__call__")
        .raise();
}
IPE_Object IPE_Type::__call_untrusted__(const IPE_Arguments& arguments) { return __call__(arguments); }
IPE_Object IPE_Type::__callmethod__(int, const IPE_Arguments&) { return {}; }

int IPE_Type::__cmp__(const IPE_Object& other) { return other.counted() == this ? 0 : 1; }
int IPE_Type::__collate__(const IPE_Object& other) { return __cmp__(other); }
uint32_t IPE_Type::__hash__() { unsupported("__hash__"); }
IPE_Object IPE_Type::__copy__() { return {}; }
bool IPE_Type::__nonzero__() { return true; }

double IPE_Type::__float__() { unsupported("__float__"); }
int64_t IPE_Type::__int__() { unsupported("__int__"); }
int32_t IPE_Type::__len__() { unsupported("__len__"); }
void IPE_Type::__str__(IPE_PrintContext& context, IPE_StackList&) {
    context.out.append(typeName() ? std::string_view(typeName()) : std::string_view("None"));
}
void IPE_Type::__repr__(IPE_PrintContext& context, IPE_StackList&) {
    context.out.append('<');
    context.out.append(typeName() ? std::string_view(typeName()) : std::string_view("UnknownType"));
    context.out.append('>');
}
const char* IPE_Type::c_str() { return ""; }
bool IPE_Type::is_text(std::string_view) { return false; }
IPE_Object IPE_Type::translate(IPE_StackList&) { return IPE_Object(this); }
void IPE_Type::save(EPA_DataOutput&) { unsupported("save"); }

IPE_Object IPE_Type::__getattr__(const IPE_Object& key, int) {
    XPK_Raise("AttributeNotFoundException", "The $type does not have an attribute named $name")
        .string("type", nameOf(this))
        .string("name", key ? key->c_str() : "")
        .raise();
}
void IPE_Type::__setattr__(const IPE_Object&, const IPE_Object&) { unsupported("__setattr__"); }
void IPE_Type::__delattr__(const IPE_Object&) { unsupported("__delattr__"); }
IPE_Object IPE_Type::__getitem__(const IPE_Object& key) {
    std::string text = key ? IPE_Object_Text(key) : std::string();
    XPK_Raise("ItemNotFoundException", "The $type does not have an key $key")
        .string("type", nameOf(this))
        .string("name", text)
        .string("key", text)
        .raise();
}
void IPE_Type::__setitem__(const IPE_Object&, const IPE_Object&) { unsupported("__setitem__"); }
void IPE_Type::__delitem__(const IPE_Object&) { unsupported("__delitem__"); }
IPE_Object IPE_Type::__getslice__(int32_t, int32_t) { unsupported("__getslice__"); }
IPE_Object IPE_Type::__dir__() { unsupported("__dir__"); }

IPE_Object IPE_Type::__getname__() { unsupported("__getname__"); }
void IPE_Type::__setname__(const IPE_Object&) { unsupported("__setname__"); }
void IPE_Type::__import__(const IPE_Object&) { unsupported("__import__"); }
void IPE_Type::__bind__() {}

IPE_Object IPE_Type::__enter__() { return {}; }
void IPE_Type::__exit__() {}
bool IPE_Type::__stop__(IPE_Frame&) { return false; }
void IPE_Type::clear() {}

namespace {

[[noreturn]] void nullPassed(const char* helper) {
    XPK_Raise("RuntimeError", "Null object passed to $helper").string("helper", helper).raise();
}

// Marks a fresh private copy, and every value in it, as reachable from other threads. Elements that were
// shared before (immutable values return themselves as their copy) are marked already or marked here by their
// owner.
void markTree(const IPE_Object& object) {
    EPA_Counted* value = object.counted();
    if (!value || value->life() != EPA_Counted::Local) return;
    value->markShared();
    if (auto* list = object.tryAs<IPE_ListType>()) {
        for (const IPE_Object& item : list->items()) markTree(item);
    } else if (auto* tuple = object.tryAs<IPE_TupleType>()) {
        for (const IPE_Object& item : tuple->items()) markTree(item);
    } else if (auto* dict = object.tryAs<IPE_DictType>()) {
        for (uint32_t i = 0; i < dict->slots(); ++i) {
            if (IPE_Type* key = dict->keyAt(i)) {
                markTree(IPE_Object(key));
                markTree(IPE_Object(dict->valueAt(i)));
            }
        }
    }
}

}  // namespace

IPE_Object IPE_Object_Copy(const IPE_Object& object) {
    if (!object) nullPassed("IPE_Object_Copy");
    return object->__copy__();
}

IPE_Object IPE_Object_Strip(const IPE_Object& object) {
    if (!object) nullPassed("IPE_Object_Strip");
    IPE_Object copy = object->__copy__();
    markTree(copy);
    return copy;
}

bool IPE_Object_Equal(const IPE_Object& a, const IPE_Object& b) {
    if (!a || !b) XPK_Raise("DevelopmentError", "Null objects pased to compare function").raise();
    return a->__cmp__(b) == 0;
}

bool IPE_Object_StringEquals(const IPE_Object& object, std::string_view text) {
    if (!object)
        XPK_Raise("RuntimeError", "Attempt to compare string equality on a uninitialized object").raise();
    auto* string = object.tryAs<IPE_StringType>();
    if (!string)
        XPK_Raise("RuntimeError",
                  "Attempt to compare string equality with a non-string object (type=$typename)")
            .string("typename", nameOf(object.counted()))
            .raise();
    return string->view() == text;
}

IPE_Object IPE_Object_AsString(const IPE_Object& object) {
    if (!object) nullPassed("IPE_Object_AsString");
    if (object.is<IPE_StringType>()) return object;
    return IPE_String(IPE_Object_Text(object));
}

std::string IPE_Object_Text(const IPE_Object& object) {
    if (!object) nullPassed("IPE_Object_AsString");
    if (auto* string = object.tryAs<IPE_StringType>()) return std::string(string->view());
    EPA_StringBuffer out;
    IPE_Object__str__(object, out);
    return std::string(out.view());
}

void IPE_Object__str__(const IPE_Object& object, EPA_StringBuffer& out) {
    if (!object) nullPassed("IPE_Object__str__");
    IPE_PrintContext context{out};
    IPE_StackList stack;
    object->__str__(context, stack);
}

std::string IPE_Object_ToString(const IPE_Object& object, bool json) {
    if (!object) nullPassed("IPE_Object_ToString");
    EPA_StringBuffer out;
    IPE_PrintContext context{out, json};
    IPE_StackList stack;
    object->__repr__(context, stack);
    return std::string(out.view());
}

void IPE_CastFailed(const IPE_Object& object, const char* need, const char* helper) {
    if (!object) nullPassed(helper);
    XPK_Raise("TypeError", "Require a '$need' but given a '$have'")
        .string("need", need)
        .string("have", nameOf(object.counted()))
        .raise();
}
