// IPE_Iterator: the one iterator of native code over any value.
//
// None gives nothing; a dict its keys, a snapshot made at the start, sorted on request; lists and tuples
// their elements, the count taken at the start; anything else itself, once. The script statement `for` takes
// lists and tuples only.
#pragma once

#include "ipe/object/ipe_type.h"

class IPE_Iterator {
  public:
    explicit IPE_Iterator(const IPE_Object& subject, bool sorted = false);
    bool hasMore() const noexcept { return position_ < count_; }
    // The next element (for a dict its key). A dict entry removed meanwhile raises KeyError "$key" when its
    // value is asked, a list that shrank IndexError "list index out of range", an iterator without a subject
    // RuntimeError "next() called on null container".
    IPE_Object next();
    // As next(), with the key: a dict's key and value, otherwise the position and the element.
    IPE_Object next(IPE_Object& key);
    int32_t count() const noexcept { return count_; }

  private:
    enum class Kind : uint8_t { Empty, Dict, List, Tuple, Single };
    int32_t position_ = 0;
    int32_t count_ = 0;
    IPE_Object subject_;
    IPE_Object keys_;
    Kind kind_ = Kind::Empty;
};
