// Built-in functions on values and texts: conversion, sequences, bits, and the string methods as functions.
//
// Most of these are one operation of their argument. What is decided here: `range` makes its list at once, so
// its length is limited and a step that never reaches the end is refused; `str` makes a new string, which
// forgets that a literal stood in triple quotes.
#include <cmath>

#include "ipe/builtins/ipe_builtinsupport.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_literal.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_packed.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/xml/ipe_pyxparser.h"
#include "runtime/epa_unicode.h"
#include "runtime/epa_wildmatch.h"

namespace {

using Arguments = const IPE_Arguments&;

// --- Conversion.

IPE_Object builtinChr(Arguments a) {
    XPK_Assert(a[0].is<IPE_IntType>());
    int64_t point = a.integer(0);
    char32_t text[2] = {point < 0 || point > UINT32_MAX ? char32_t(-1) : static_cast<char32_t>(point), 0};
    EPA_Unicode unicode;
    unicode.setUtf32(text, point == 0 ? 0 : 1);
    return IPE_String(unicode.utf8());
}

IPE_Object builtinOrd(Arguments a) {
    const char32_t* points = PyString_SafeCast(a[0])->codePoints();
    return IPE_Int(points[0]);
}

IPE_Object builtinLen(Arguments a) { return IPE_Int(a[0]->__len__()); }
IPE_Object builtinLong(Arguments a) { return IPE_Int(a[0]->__int__()); }
IPE_Object builtinFloat(Arguments a) { return IPE_Float(a[0]->__float__()); }
IPE_Object builtinStr(Arguments a) { return IPE_String(IPE_Object_Text(a[0])); }

IPE_Object builtinRepr(Arguments a) {
    EPA_StringBuffer text;
    IPE_PrintContext context{text};
    if (a.hasKeywords()) {
        context.json = a.keywordTrue("json");
        context.booleansAsIntegers = a.keywordTrue("booleans_as_integers");
    }
    IPE_StackList stack;
    a[0]->__repr__(context, stack);
    if (a.hasKeywords() && a.keywordTrue("zlib")) return IPE_String(IPE_PackText(text.view()));
    return IPE_String(text.view());
}

IPE_Object builtinEval(Arguments a) {
    if (!a.hasKeywords()) return parse_literal(a.text(0));
    return parse_literal(a.text(0), a.keywordTrue("zlib"), a.keywordTrue("json"));
}

IPE_Object builtinType(Arguments a) {
    const char* name = a[0].typeName();
    return IPE_String(name ? name : "");
}

// --- Sequences.

template <class Sequence>
IPE_Object sequenceOf(const IPE_Object& value) {
    IPE_Object result = IPE_New<Sequence>();
    auto* out = result.as<Sequence>();
    if (value.is<IPE_ListType>() || value.is<IPE_TupleType>()) {
        auto* in = value.as<IPE_SequenceType>();
        int32_t count = in->count();
        out->items().assign(in->items().begin(), in->items().begin() + count);
    } else if (auto* dict = value.tryAs<IPE_DictType>()) {
        out->reserve(static_cast<size_t>(dict->count()));
        for (uint32_t i = 0; i < dict->slots(); ++i)
            if (IPE_Type* key = dict->keyAt(i))
                out->append(IPE_TupleOf({IPE_Object(key), IPE_Object(dict->valueAt(i))}));
    } else if (auto* string = value.tryAs<IPE_StringType>()) {
        int32_t length = string->length();
        out->reserve(static_cast<size_t>(length));
        for (int32_t i = 0; i < length; ++i) out->append(string->__getitem__(IPE_Int(i)));
    } else {
        XPK_Raise("ValueError", "tuple() argument must be a sequence").raise();
    }
    return result;
}

IPE_Object builtinList(Arguments a) { return sequenceOf<IPE_ListType>(a[0]); }
IPE_Object builtinTuple(Arguments a) { return sequenceOf<IPE_TupleType>(a[0]); }

IPE_Object builtinRange(Arguments a) {
    constexpr uint64_t Limit = uint64_t(1) << 26;
    int64_t first = a.integer(0), end = a.integer(1), step = a.size() > 2 ? a.integer(2) : 1;
    IPE_Object list = IPE_NewList();
    if (first >= end) return list;
    if (step <= 0)
        XPK_Raise("ValueError", "range() step must be above 0, not $step").number("step", step).raise();
    uint64_t distance = static_cast<uint64_t>(end) - static_cast<uint64_t>(first);
    uint64_t count = (distance - 1) / static_cast<uint64_t>(step) + 1;
    if (count > Limit) throw XPK_MemoryException(__FILE__, __LINE__);
    auto* out = list.as<IPE_ListType>();
    out->reserve(count);
    for (uint64_t i = 0; i < count; ++i)
        out->append(
            IPE_Int(static_cast<int64_t>(static_cast<uint64_t>(first) + i * static_cast<uint64_t>(step))));
    return list;
}

// --- Numbers.

IPE_Object builtinAbs(Arguments a) {
    if (a.integer(0) >= 0) return a[0];
    return IPE_Int(0)->__sub__(a[0]);  // raises for the lowest value, which has no positive twin
}

IPE_Object builtinBits(Arguments a) {
    auto value = static_cast<uint64_t>(a.integer(0));
    IPE_Object list = IPE_NewList();
    for (int bit = 0; bit < 32; ++bit)
        if (uint64_t mask = uint64_t(1) << bit; value & mask)
            list.as<IPE_ListType>()->append(IPE_Int(static_cast<int64_t>(mask)));
    return list;
}

IPE_Object builtinByteswap(Arguments a) {
    return IPE_Int(static_cast<int64_t>(__builtin_bswap32(static_cast<uint32_t>(a.integer(0)))));
}

IPE_Object builtinSqrt(Arguments a) { return IPE_Float(std::sqrt(a[0]->__float__())); }

// --- Texts.

IPE_Object builtinLower(Arguments a) { return PyString_SafeCast(a[0])->lower(); }
IPE_Object builtinUpper(Arguments a) { return PyString_SafeCast(a[0])->upper(); }
IPE_Object builtinSplit(Arguments a) { return PyString_SafeCast(a[0])->split(a.from(1)); }
IPE_Object builtinJoin(Arguments a) { return PyList_SafeCast(a[0])->join(a.text(1)); }
IPE_Object builtinFind(Arguments a) { return PyString_SafeCast(a[0])->find(a.text(1)); }
IPE_Object builtinWildmatch(Arguments a) { return IPE_Bool(EPA_WildMatch(a.text(1), a.text(0))); }

IPE_Object builtinPyxparser(Arguments a) { return IPE_PyxTokens(a.text(0), true); }

IPE_Object builtinTranslate(Arguments a) {
    IPE_StackList stack;
    return a[0]->translate(stack);
}

const IPE_Builtin Rows[] = {
    {"chr", "o", builtinChr},
    {"ord", "s", builtinOrd},
    {"len", "o", builtinLen},
    {"long", "o", builtinLong},
    {"float", "o", builtinFloat},
    {"str", "o", builtinStr},
    {"repr", "o", builtinRepr},
    {"eval", "s", builtinEval},
    {"type", "o", builtinType},
    {"list", "o", builtinList},
    {"tuple", "o", builtinTuple},
    {"range", "ii|i", builtinRange},
    {"abs", "i", builtinAbs},
    {"bits", "i|i", builtinBits},
    {"byteswap_U32", "i", builtinByteswap},
    {"sqrt", "o", builtinSqrt},
    {"lower", "s", builtinLower},
    {"upper", "s", builtinUpper},
    {"split", "s|so", builtinSplit},
    {"join", "ls", builtinJoin},
    {"find", "ss", builtinFind},
    {"wildmatch", "ss", builtinWildmatch},
    {"pyxparser", "s", builtinPyxparser},
    {"translate", "o", builtinTranslate},
};
const IPE_BuiltinTable registered(Rows);

}  // namespace
