// What lists and tuples share: comparison, hashing, writing, translation, saving and clearing.
//
// An element's operation may be script code that changes the very container it is called from. Every loop
// here therefore runs by index, tests the size at each step and holds a handle to the element it works on.
// Loops that call themselves for nested containers are bounded by IPE_DepthScope, the writers by their stack.
#include <vector>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_depth.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_dataoutput.h"

const char* const IPE_SequenceType::listName = IPE_ListType::TypeName;

void IPE_SequenceType::accessAfterClear() const {
    XPK_Raise("RuntimeError", typeName() == IPE_ListType::TypeName
                                  ? "List is being accessed after clear() has been called."
                                  : "Tuple is being accessed after clear() has been called.")
        .raise();
}

int64_t IPE_SequenceType::indexOf(const IPE_Object& key) {
    if (auto* number = key.tryAs<IPE_IntType>()) return number->value;
    if (auto* text = key.tryAs<IPE_StringType>()) {
        std::string_view digits = text->view();
        if (!digits.empty() && digits[0] == '-') digits.remove_prefix(1);
        if (digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos)
            IPE_CastFailed(key, IPE_IntType::TypeName, "PyInt_SafeCast");
    }
    XPK_Assert(!key.isNull());
    return key->__int__();
}

int IPE_SequenceType::compare(const IPE_Object& other, bool collating) {
    int32_t own = count();
    if (other.counted() == this) return 0;
    if (other.typeName() != typeName()) return 1;
    auto* right = other.as<IPE_SequenceType>();
    int32_t foreign = right->count();
    IPE_DepthScope depth;
    for (size_t i = 0; i < items_.size() && i < right->items_.size(); ++i) {
        IPE_Object a = items_[i], b = right->items_[i];
        if (int result = collating ? a->__collate__(b) : a->__cmp__(b)) return result;
    }
    return own == foreign ? 0 : 1;
}

int IPE_SequenceType::__cmp__(const IPE_Object& other) { return compare(other, false); }
int IPE_SequenceType::__collate__(const IPE_Object& other) { return compare(other, true); }

uint32_t IPE_SequenceType::__hash__() {
    count();
    IPE_DepthScope depth;
    uint32_t sum = 0;
    for (size_t i = 0; i < items_.size(); ++i) {
        IPE_Object item = items_[i];
        sum += item->__hash__();
    }
    return sum;
}

void IPE_SequenceType::write(IPE_PrintContext& context, IPE_StackList& stack, bool repr, const char* brackets,
                             std::string_view separator) {
    count();
    context.out.append(brackets[0]);
    if (stack.contains(this)) {
        context.out.append("...");
    } else {
        IPE_StackScope scope(stack, this);
        for (size_t i = 0; i < items_.size(); ++i) {
            if (i) context.out.append(separator);
            IPE_Object item = items_[i];
            if (repr)
                item->__repr__(context, stack);
            else
                item->__str__(context, stack);
        }
    }
    context.out.append(brackets[1]);
}

void IPE_SequenceType::translateInto(IPE_SequenceType& target, IPE_StackList& stack) {
    count();
    if (stack.contains(this))
        XPK_Raise("RuntimeError", "Cannot call translate on circular structures").raise();
    IPE_StackScope scope(stack, this);
    for (size_t i = 0; i < items_.size(); ++i) {
        IPE_Object item = items_[i];
        target.append(item->translate(stack));
    }
}

void IPE_SequenceType::saveItems(EPA_DataOutput& out, uint8_t open, uint8_t close) {
    count();
    IPE_DepthScope depth;
    out.writeByte(open);
    for (size_t i = 0; i < items_.size(); ++i) {
        if (i) out.writeByte(0x26);
        IPE_Object item = items_[i];
        item->save(out);
    }
    out.writeByte(close);
}

void IPE_SequenceType::clear() {
    if (cleared_) return;
    cleared_ = true;
    std::vector<IPE_Object> items = std::move(items_);
    items_.clear();
    for (const IPE_Object& item : items) IPE_ClearValue(item);
}

void IPE_ClearValue(const IPE_Object& value) {
    struct Waiting {
        int depth = 0;
        std::vector<IPE_Object> values;
    };
    static thread_local Waiting waiting;
    constexpr int Limit = 64;
    if (value.isNull()) return;
    if (waiting.depth >= Limit) {
        waiting.values.push_back(value);
        return;
    }
    struct Level {
        Level() { ++waiting.depth; }
        ~Level() { --waiting.depth; }
    };
    {
        Level level;
        value->clear();
    }
    while (waiting.depth == 0 && !waiting.values.empty()) {
        IPE_Object next = std::move(waiting.values.back());
        waiting.values.pop_back();
        Level level;
        next->clear();
    }
}
