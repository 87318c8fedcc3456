// Lists: methods, operators and items. Sorting has a source of its own (ipe_sort.cpp).
#include <algorithm>
#include <cstring>

#include "ipe/object/ipe_moduletype.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_depth.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

const char IPE_ListType::TypeName[] = "ListType";

namespace {

enum Method : int { Append, Sort, IndexedSort, Index, IndexNocase, Reverse, Sum, Min, Max, Join };

[[noreturn]] void outOfRange() { XPK_Raise("IndexError", "list index out of range").raise(); }

IPE_Object indexOfValue(IPE_ListType& list, const IPE_Object& value) {
    for (int32_t i = 0; i < list.count(); ++i) {
        IPE_Object item = list.at(i);
        if (item->__cmp__(value) == 0) return IPE_Int(i);
    }
    return IPE_Int(-1);
}

IPE_Object indexIgnoringCase(const IPE_ListType& list, const IPE_Object& value) {
    std::string_view text = PyString_SafeCast(value)->view();
    for (int32_t i = 0; i < list.count(); ++i)
        if (IPE_CollateText(PyString_SafeCast(list.at(i))->view(), text, true) == 0) return IPE_Int(i);
    return IPE_Int(-1);
}

// Folds the integer elements, passing over all others.
template <class Fold>
IPE_Object foldInts(IPE_ListType& list, Fold&& fold) {
    int64_t result = 0;
    list.count();
    for (const IPE_Object& item : list.items())
        if (item.is<IPE_IntType>()) result = fold(result, item.as<IPE_IntType>()->value);
    return IPE_Int(result);
}

int64_t checkedSum(int64_t a, int64_t b) {
    int64_t sum;
    if (__builtin_add_overflow(a, b, &sum)) throw XPK_Exception("", 0, "SafeIntArithmeticOverflow", "", "");
    return sum;
}

}  // namespace

IPE_Object IPE_ListOf(std::initializer_list<IPE_Object> items) {
    IPE_Object list = IPE_NewList();
    list.as<IPE_ListType>()->items().assign(items);
    return list;
}

const IPE_Object& IPE_List::operator[](int32_t index) const {
    if (index < 0 || index >= list_->count()) outOfRange();
    return list_->at(index);
}

int IPE_ListType::methodNumber(std::string_view name) noexcept {
    auto is = [&](std::string_view text, Method method) { return name == text ? method : -1; };
    if (name.size() < 3) return -1;
    switch (name[0]) {
        case 'a': return is("append", Append);
        case 'i':
            if (name == "isort") return IndexedSort;
            return name.size() == 5 ? is("index", Index) : is("index_nocase", IndexNocase);
        case 'j': return is("join", Join);
        case 'm': return name[1] == 'i' ? is("min", Min) : is("max", Max);
        case 'r': return is("reverse", Reverse);
        case 's': return name.size() == 4 ? is("sort", Sort) : is("sum", Sum);
        default: return -1;
    }
}

IPE_Object IPE_ListType::__getattr__(const IPE_Object& key, int depth) {
    int method = key.is<IPE_StringType>() ? methodNumber(key.as<IPE_StringType>()->view()) : -1;
    if (method < 0) return IPE_Type::__getattr__(key, depth);
    return IPE_MethodOf(this, method);
}

IPE_Object IPE_ListType::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case Append:
            arguments.check("o", "append");
            append(arguments[0]);
            return IPE_Object(this);
        case Sort:
            arguments.check("|s", "sort");
            sort(arguments.size() > 0 && arguments.text(0) == "D");
            return IPE_None();
        case IndexedSort:
            arguments.check("o", "isort");
            sortBy(arguments[0]);
            return IPE_Object(this);
        case Index: arguments.check("o", "index"); return indexOfValue(*this, arguments[0]);
        case IndexNocase: return indexIgnoringCase(*this, arguments.at(0));
        case Reverse:
            arguments.check("", "reverse");
            count();
            std::reverse(items_.begin(), items_.end());
            return IPE_None();
        case Sum: arguments.check("", "sum"); return foldInts(*this, checkedSum);
        case Min:
            arguments.check("", "min");
            return foldInts(*this, [](int64_t least, int64_t value) {
                return value != 0 && (least == 0 || value < least) ? value : least;
            });
        case Max:
            arguments.check("", "max");
            return foldInts(*this, [](int64_t most, int64_t value) { return value > most ? value : most; });
        case Join: arguments.check("s", "join"); return join(arguments.text(0));
        default: return {};
    }
}

IPE_Object IPE_ListType::join(std::string_view separator) {
    count();
    size_t total = 0;
    bool texts = true;
    for (const IPE_Object& item : items_) {
        const auto* text = item.tryAs<IPE_StringType>();
        if (!text) {
            texts = false;
            break;
        }
        total += text->bytes() + separator.size();
    }
    if (!texts) {
        EPA_StringBuffer out;
        for (size_t i = 0; i < items_.size(); ++i) {
            if (i) out.append(separator);
            IPE_Object item = items_[i];
            IPE_Object__str__(item, out);
        }
        return IPE_String(out.view());
    }
    if (total == 0) return IPE_String({});
    IPE_Object result = IPE_StringType::makeUninitialised(total - separator.size());
    char* p = result.as<IPE_StringType>()->data();
    for (size_t i = 0; i < items_.size(); ++i) {
        if (i) p = static_cast<char*>(mempcpy(p, separator.data(), separator.size()));
        const auto* text = items_[i].as<IPE_StringType>();
        p = static_cast<char*>(mempcpy(p, text->text(), text->bytes()));
    }
    return result;
}

// --- Operators

IPE_Object IPE_ListType::__add__(const IPE_Object& other) {
    count();
    if (!other.is<IPE_ListType>())
        XPK_Raise("TypeError", "TypeError: can only concatenate list (not \"$othertype\") to list")
            .string("othertype", other.isNull() ? "null" : other.typeName())
            .raise();
    auto* right = other.as<IPE_ListType>();
    right->count();
    IPE_DepthScope depth;
    IPE_Object result = IPE_NewList();
    auto& items = result.as<IPE_ListType>()->items_;
    items.reserve(items_.size() + right->items_.size());
    for (IPE_ListType* list : {this, right})
        for (size_t i = 0; i < list->items_.size(); ++i) {
            IPE_Object item = list->items_[i];
            if (IPE_Object copy = item->__copy__()) items.push_back(std::move(copy));
        }
    return result;
}

IPE_Object IPE_ListType::__copy__() {
    count();
    IPE_DepthScope depth;
    IPE_Object result = IPE_NewList();
    auto& items = result.as<IPE_ListType>()->items_;
    items.reserve(items_.size());
    for (size_t i = 0; i < items_.size(); ++i) {
        IPE_Object item = items_[i];
        if (IPE_Object copy = item->__copy__()) items.push_back(std::move(copy));
    }
    return result;
}

void IPE_ListType::__str__(IPE_PrintContext& context, IPE_StackList& stack) {
    write(context, stack, false, "[]", context.json ? "," : ", ");
}

void IPE_ListType::__repr__(IPE_PrintContext& context, IPE_StackList& stack) {
    write(context, stack, true, "[]", context.json ? "," : ", ");
}

IPE_Object IPE_ListType::translate(IPE_StackList& stack) {
    IPE_Object result = IPE_NewList();
    translateInto(*result.as<IPE_ListType>(), stack);
    return result;
}

void IPE_ListType::save(EPA_DataOutput& out) { saveItems(out, 0x22, 0x23); }

IPE_Object IPE_ListType::__getname__() { return IPE_Object(IPE_StringType::intern(TypeName)); }

// --- Items

IPE_Object IPE_ListType::__getitem__(const IPE_Object& key) {
    const IPE_Object* item = element(indexOf(key));
    return item ? *item : IPE_Object();
}

void IPE_ListType::__setitem__(const IPE_Object& key, const IPE_Object& value) {
    int64_t index = indexOf(key);
    if (index < 0 || index >= count()) outOfRange();
    IPE_Object old = std::move(items_[static_cast<size_t>(index)]);
    items_[static_cast<size_t>(index)] = value;
}

void IPE_ListType::__delitem__(const IPE_Object& key) {
    int64_t index = indexOf(key);
    if (index < 0 || index >= count()) outOfRange();
    IPE_Object old = std::move(items_[static_cast<size_t>(index)]);
    items_.erase(items_.begin() + index);
}

IPE_Object IPE_ListType::__getslice__(int32_t begin, int32_t end) {
    int32_t size = count();
    if (begin < 0) begin = begin + size < 0 ? 0 : begin + size;
    if (end < 0) end += size;
    if (end > size) end = size;
    IPE_Object result = IPE_NewList();
    if (begin < end) result.as<IPE_ListType>()->items_.assign(items_.begin() + begin, items_.begin() + end);
    return result;
}
