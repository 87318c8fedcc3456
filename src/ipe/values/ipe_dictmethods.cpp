// The script side of dictionaries: methods, operations over all entries, and the native helpers.
//
// Operations that call back into entries (compare, copy, hash, write) run by slot, read the table afresh at
// each step and hold the entry they work on: an entry's own code may change the dictionary.
#include "ipe/object/ipe_moduletype.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_depth.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_dataoutput.h"

namespace {

enum Method : int { Get, Keys, HasKey, GetSet, GetNocase, GetSetNocase, HasKeyNocase };

const IPE_Object& orNone(const IPE_Arguments& arguments, int index) {
    return index < arguments.size() ? arguments[index] : IPE_None();
}

}  // namespace

// --- Methods

int IPE_DictType::methodNumber(std::string_view name) noexcept {
    auto is = [&](std::string_view text, Method method) { return name == text ? method : -1; };
    if (name.size() < 3) return -1;
    switch (name[0]) {
        case 'g':
            if (name.size() == 3) return is("get", Get);
            if (name.size() == 6) return is("getset", GetSet);
            return name.size() == 10 ? is("get_nocase", GetNocase) : is("getset_nocase", GetSetNocase);
        case 'h': return name.size() == 7 ? is("has_key", HasKey) : is("has_key_nocase", HasKeyNocase);
        case 'k': return is("keys", Keys);
        default: return -1;
    }
}

IPE_Object IPE_DictType::__getattr__(const IPE_Object& key, int) {
    if (auto* name = key.tryAs<IPE_StringType>()) {
        int method = methodNumber(name->view());
        if (method >= 0) return IPE_MethodOf(this, method);
        return IPE_Object(findName(name));
    }
    return IPE_Object(find(key));
}

IPE_Object IPE_DictType::keyIgnoringCase(const IPE_Object& key) {
    check();
    std::string_view text = PyString_SafeCast(key)->view();
    for (uint32_t i = 0; i < capacity_; ++i) {
        IPE_Object stored(keyAt(i));
        if (!stored.isNull() && IPE_CollateText(PyString_SafeCast(stored)->view(), text, true) == 0)
            return stored;
    }
    return {};
}

IPE_Object IPE_DictType::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case Get: {
            arguments.check("o|o", "get");
            IPE_Type* value = find(arguments[0]);
            return value ? IPE_Object(value) : orNone(arguments, 1);
        }
        case Keys:
            arguments.check("|s", "keys");
            return keys(arguments.size() ? arguments[0]->c_str()[0] : 0);
        case HasKey: arguments.check("o", "has_key"); return IPE_Int(find(arguments[0]) != nullptr);
        case GetSet:
            arguments.check("oo", "getset");
            if (IPE_Type* value = find(arguments[0])) return IPE_Object(value);
            set(arguments[0], arguments[1]);
            return arguments[1];
        case GetNocase: {
            arguments.check("o|o", "get_nocase");
            IPE_Object key = keyIgnoringCase(arguments[0]);
            return key.isNull() ? orNone(arguments, 1) : IPE_Object(find(key));
        }
        case GetSetNocase: {
            arguments.check("oo", "getset_nocase");
            IPE_Object key = keyIgnoringCase(arguments[0]);
            if (!key.isNull()) return IPE_Object(find(key));
            set(arguments[0], arguments[1]);
            return arguments[1];
        }
        case HasKeyNocase:
            arguments.check("o", "has_key_nocase");
            return IPE_Int(!keyIgnoringCase(arguments[0]).isNull());
        default: return {};
    }
}

// --- Operations over all entries

int IPE_DictType::__cmp__(const IPE_Object& other) {
    check();
    if (other.counted() == this) return 0;
    auto* right = other.tryAs<IPE_DictType>();
    if (!right || right->count() != count_) return 1;
    IPE_DepthScope depth;
    for (uint32_t i = 0; i < capacity_; ++i) {
        IPE_Object key(keyAt(i));
        if (key.isNull()) continue;
        IPE_Object value(valueAt(i));
        IPE_Object match(right->find(key));
        if (match.isNull()) return 1;
        if (int result = value->__cmp__(match)) return result;
    }
    return 0;
}

uint32_t IPE_DictType::__hash__() {
    if (cleared_) accessAfterClear("List is being accessed after clear() has been called.");
    IPE_DepthScope depth;
    uint32_t sum = 0;
    for (uint32_t i = 0; i < capacity_; ++i) {
        IPE_Object key(keyAt(i));
        if (key.isNull()) continue;
        IPE_Object value(valueAt(i));
        sum += key->__hash__();
        sum += value->__hash__();
    }
    return sum;
}

IPE_Object IPE_DictType::__copy__() {
    check();
    IPE_DepthScope depth;
    IPE_Object result = IPE_NewDict();
    auto* target = result.as<IPE_DictType>();
    for (uint32_t i = 0; i < capacity_; ++i) {
        IPE_Object key(keyAt(i));
        if (key.isNull()) continue;
        IPE_Object value(valueAt(i));
        if (IPE_Object copy = value->__copy__()) target->set(key, std::move(copy));
    }
    return result;
}

void IPE_DictType::write(IPE_PrintContext& context, IPE_StackList& stack, bool repr, std::string_view colon,
                         std::string_view comma) {
    check();
    context.out.append('{');
    if (stack.contains(this)) {
        context.out.append("...}");
        return;
    }
    IPE_StackScope scope(stack, this);
    bool first = true;
    auto put = [&](const IPE_Object& object) {
        repr ? object->__repr__(context, stack) : object->__str__(context, stack);
    };
    for (uint32_t i = 0; i < capacity_; ++i) {
        IPE_Object key(keyAt(i));
        if (key.isNull()) continue;
        IPE_Object value(valueAt(i));
        if (!first) context.out.append(comma);
        first = false;
        put(key);
        context.out.append(colon);
        put(value);
    }
    context.out.append('}');
}

void IPE_DictType::__str__(IPE_PrintContext& context, IPE_StackList& stack) {
    write(context, stack, false, ": ", ", ");
}

void IPE_DictType::__repr__(IPE_PrintContext& context, IPE_StackList& stack) {
    write(context, stack, true, context.json ? ":" : ": ", context.json ? "," : ", ");
}

IPE_Object IPE_DictType::translate(IPE_StackList& stack) {
    check();
    if (stack.contains(this))
        XPK_Raise("RuntimeError", "Cannot call translate on circular structures").raise();
    IPE_StackScope scope(stack, this);
    IPE_Object result = IPE_NewDict();
    auto* target = result.as<IPE_DictType>();
    for (uint32_t i = 0; i < capacity_; ++i) {
        IPE_Object key(keyAt(i));
        if (key.isNull()) continue;
        IPE_Object value(valueAt(i));
        IPE_Object translatedKey = key->translate(stack);
        target->set(translatedKey, value->translate(stack));
    }
    return result;
}

void IPE_DictType::save(EPA_DataOutput& out) {
    check();
    IPE_DepthScope depth;
    out.writeByte(0x20);
    bool first = true;
    for (uint32_t i = 0; i < capacity_; ++i) {
        IPE_Object key(keyAt(i));
        if (key.isNull()) continue;
        IPE_Object value(valueAt(i));
        if (!first) out.writeByte(0x26);
        first = false;
        key->save(out);
        out.writeByte(0x25);
        value->save(out);
    }
    out.writeByte(0x21);
}

IPE_Object IPE_DictType::__getitem__(const IPE_Object& key) { return IPE_Object(find(key)); }

IPE_Object IPE_DictType::__getname__() { return IPE_Object(IPE_StringType::intern(TypeName)); }

// --- Native helpers

IPE_Object IPE_Dict_Get(const IPE_Object& dict, std::string_view key) {
    IPE_Type* value = PyDict_SafeCast(dict)->findText(key);
    if (!value) XPK_Raise("KeyError", "$key").string("key", key).raise();
    return IPE_Object(value);
}

namespace {

std::string textOf(const IPE_Object& value) {
    if (auto* string = value.tryAs<IPE_StringType>()) return std::string(string->view());
    const char* text = value->c_str();
    return *text ? std::string(text) : IPE_Object_Text(value);
}

}  // namespace

std::string IPE_Dict_GetString(const IPE_Object& dict, std::string_view key) {
    return textOf(IPE_Dict_Get(dict, key));
}

int64_t IPE_Dict_GetInt64(const IPE_Object& dict, std::string_view key) {
    return IPE_Dict_Get(dict, key)->__int__();
}

int32_t IPE_Dict_GetInt32(const IPE_Object& dict, std::string_view key, int32_t absent) {
    IPE_Object value(PyDict_SafeCast(dict)->findText(key));
    return value.isNull() ? absent : static_cast<int32_t>(value->__int__());
}

int64_t IPE_Dict_GetInt64(const IPE_Object& dict, std::string_view key, int64_t absent) {
    IPE_Object value(PyDict_SafeCast(dict)->findText(key));
    return value.isNull() ? absent : value->__int__();
}

std::string IPE_Dict_GetString(const IPE_Object& dict, std::string_view key, std::string_view absent) {
    IPE_Object value(PyDict_SafeCast(dict)->findText(key));
    return value.isNull() ? std::string(absent) : textOf(value);
}

void IPE_Dict_Set(const IPE_Object& dict, std::string_view key, IPE_Object value) {
    PyDict_SafeCast(dict)->setText(key, std::move(value));
}
