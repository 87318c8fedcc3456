// Reading a call's arguments.
#include "ipe/object/ipe_arguments.h"

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

const IPE_Object IPE_Arguments::NoKeywords;

IPE_Object IPE_Arguments::keyword(std::string_view name) const {
    if (!hasKeywords()) return {};
    return IPE_Object(PyDict_SafeCast(*keywords_)->findText(name));
}

bool IPE_Arguments::keywordTrue(std::string_view name) const {
    IPE_Object value = keyword(name);
    return value && value->__nonzero__();
}

int64_t IPE_Arguments::keywordInt(std::string_view name, int64_t absent) const {
    IPE_Object value = keyword(name);
    return value && !value.is<IPE_NoneType>() ? value->__int__() : absent;
}

IPE_Object IPE_Arguments::keywords() const { return hasKeywords() ? *keywords_ : IPE_NewDict(); }

IPE_Object IPE_Arguments::tuple() const {
    IPE_Object tuple = IPE_NewTuple();
    auto& items = tuple.as<IPE_TupleType>()->items();
    items.assign(begin(), end());
    return tuple;
}

std::string_view IPE_Arguments::text(int index) const {
    const IPE_Object& value = at(index);
    if (!value) return {};
    if (auto* string = value.tryAs<IPE_StringType>()) return string->view();
    return value->c_str();
}

int64_t IPE_Arguments::integer(int index) const {
    const IPE_Object& value = at(index);
    if (!value) return 0;
    if (auto* number = value.tryAs<IPE_IntType>()) return number->value;
    return value->__int__();
}

void IPE_Arguments::check(const char* spec, const char* name) const {
    int index = 0, required = 0;
    bool open = false;
    for (const char* c = spec; *c && *c != '*'; ++c) {
        const char* type = nullptr;
        switch (*c) {
            case '|': open = true; continue;
            case 'o': break;
            case 's': type = IPE_StringType::TypeName; break;
            case 'i': type = IPE_IntType::TypeName; break;
            case 'l': type = IPE_ListType::TypeName; break;
            default: continue;
        }
        if (!open) ++required;
        if (index < count_ && type && items_[index].typeName() != type) {
            const char* given = items_[index].typeName();
            XPK_Raise("TypeError", "Index $index requires $requires arguments, $given given")
                .number("index", index)
                .string("requires", type)
                .string("given", given ? given : "")
                .raise();
        }
        ++index;
    }
    if (open ? count_ < required : count_ != required)
        XPK_Raise("TypeError", "$name requires $requires arguments, $given given")
            .string("name", name)
            .number("requires", required)
            .number("given", count_)
            .raise();
}
