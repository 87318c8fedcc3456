// The iterator fetches at each step and takes only the count at the start, so a subject that changes
// meanwhile ends in an error rather than in a stale element.
#include "ipe/values/ipe_iterator.h"

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"

IPE_Iterator::IPE_Iterator(const IPE_Object& subject, bool sorted) : subject_(subject) {
    if (subject.isNull() || subject.is<IPE_NoneType>()) return;
    if (auto* dict = subject.tryAs<IPE_DictType>()) {
        kind_ = Kind::Dict;
        keys_ = dict->keys(sorted ? 'A' : 0);
        count_ = keys_.as<IPE_ListType>()->count();
    } else if (auto* list = subject.tryAs<IPE_ListType>()) {
        kind_ = Kind::List;
        count_ = list->count();
    } else if (auto* tuple = subject.tryAs<IPE_TupleType>()) {
        kind_ = Kind::Tuple;
        count_ = tuple->count();
    } else {
        kind_ = Kind::Single;
        count_ = 1;
    }
}

IPE_Object IPE_Iterator::next() {
    if (subject_.isNull()) XPK_Raise("RuntimeError", "next() called on null container").raise();
    if (!hasMore()) XPK_Raise("IndexError", "list index out of range").raise();
    int32_t position = position_++;
    switch (kind_) {
        case Kind::Dict: return IPE_List(keys_)[position];
        case Kind::List: return IPE_List(subject_)[position];
        case Kind::Tuple: return IPE_Tuple(subject_)[position];
        default: return subject_;
    }
}

IPE_Object IPE_Iterator::next(IPE_Object& key) {
    int32_t position = position_;
    IPE_Object element = next();
    if (kind_ != Kind::Dict) {
        key = IPE_Int(position);
        return element;
    }
    key = element;
    IPE_Object value(subject_.as<IPE_DictType>()->find(element));
    if (value.isNull()) XPK_Raise("KeyError", "$key").string("key", IPE_Object_Text(element)).raise();
    return value;
}
