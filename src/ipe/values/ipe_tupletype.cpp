// Tuples: lists of a fixed length whose elements can still be replaced.
#include "ipe/object/ipe_moduletype.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_depth.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

const char IPE_TupleType::TypeName[] = "TupleType";

namespace {

enum Method : int { Append };

[[noreturn]] void outOfRange() { XPK_Raise("IndexError", "tuple index out of range").raise(); }

}  // namespace

IPE_Object IPE_TupleOf(std::initializer_list<IPE_Object> items) {
    IPE_Object tuple = IPE_NewTuple();
    tuple.as<IPE_TupleType>()->items().assign(items);
    return tuple;
}

const IPE_Object& IPE_Tuple::operator[](int32_t index) const {
    if (index < 0 || index >= tuple_->count()) outOfRange();
    return tuple_->at(index);
}

int IPE_TupleType::methodNumber(std::string_view name) noexcept {
    return name == "tuple_append" ? Append : -1;
}

IPE_Object IPE_TupleType::__getattr__(const IPE_Object& key, int depth) {
    int method = key.is<IPE_StringType>() ? methodNumber(key.as<IPE_StringType>()->view()) : -1;
    if (method < 0) return IPE_Type::__getattr__(key, depth);
    return IPE_MethodOf(this, method);
}

IPE_Object IPE_TupleType::__callmethod__(int method, const IPE_Arguments& arguments) {
    if (method != Append) return {};
    arguments.check("o", "tuple_append");
    count();
    IPE_Object result = IPE_NewTuple();
    auto& items = result.as<IPE_TupleType>()->items_;
    items.reserve(items_.size() + 1);
    items = items_;
    items.push_back(arguments[0]);
    return result;
}

IPE_Object IPE_TupleType::__copy__() {
    count();
    IPE_DepthScope depth;
    IPE_Object result = IPE_NewTuple();
    auto& items = result.as<IPE_TupleType>()->items_;
    items.reserve(items_.size());
    for (size_t i = 0; i < items_.size(); ++i) {
        IPE_Object item = items_[i];
        IPE_Object copy = item->__copy__();
        if (copy.isNull()) XPK_Raise("TypeError", "__copy__ is not supported for element in tuple").raise();
        items.push_back(std::move(copy));
    }
    return result;
}

double IPE_TupleType::__float__() {
    if (count() != 1) XPK_Raise("RuntimeError", "cannot convert multi valued tuple to float").raise();
    IPE_DepthScope depth;
    IPE_Object only = items_[0];
    return only->__float__();
}

int64_t IPE_TupleType::__int__() {
    if (count() != 1) XPK_Raise("RuntimeError", "cannot convert multi valued tuple to integer").raise();
    IPE_DepthScope depth;
    IPE_Object only = items_[0];
    return only->__int__();
}

void IPE_TupleType::__str__(IPE_PrintContext& context, IPE_StackList& stack) {
    write(context, stack, false, "()", ", ");
}

void IPE_TupleType::__repr__(IPE_PrintContext& context, IPE_StackList& stack) {
    write(context, stack, true, context.json ? "[]" : "()", context.json ? "," : ", ");
}

IPE_Object IPE_TupleType::translate(IPE_StackList& stack) {
    IPE_Object result = IPE_NewTuple();
    translateInto(*result.as<IPE_TupleType>(), stack);
    return result;
}

IPE_Object IPE_TupleType::__getitem__(const IPE_Object& key) {
    const IPE_Object* item = element(indexOf(key));
    return item ? *item : IPE_Object();
}

void IPE_TupleType::__setitem__(const IPE_Object& key, const IPE_Object& value) {
    int64_t index = indexOf(key);
    if (index < 0 || index >= count()) outOfRange();
    IPE_Object old = std::move(items_[static_cast<size_t>(index)]);
    items_[static_cast<size_t>(index)] = value;
}

IPE_Object IPE_TupleType::__getname__() { return IPE_Object(IPE_StringType::intern(TypeName)); }

void IPE_TupleType::save(EPA_DataOutput& out) { saveItems(out, 0x1E, 0x1F); }
