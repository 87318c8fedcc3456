// IPE_Arguments: the argument tuple and the keyword dictionary of one call, and the check of argument specs.
//
// The interpreter passes arguments as a run of handles that it owns for the duration of the call, so that a
// call builds neither a tuple nor a dictionary unless the callee asks for one. Native functions borrow
// everything in it.
#pragma once

#include <string_view>

#include "ipe/object/ipe_type.h"

class IPE_DictType;

class IPE_Arguments {
  public:
    IPE_Arguments() = default;
    // `items` must outlive the call. `keywords` is a DictType or null for none.
    IPE_Arguments(const IPE_Object* items, int count, const IPE_Object& keywords = NoKeywords)
        : items_(items), count_(count), keywords_(&keywords) {}

    int size() const noexcept { return count_; }
    // Argument `index`, which must be below size().
    const IPE_Object& operator[](int index) const noexcept { return items_[index]; }
    // Argument `index`, or a null handle past the end.
    const IPE_Object& at(int index) const noexcept { return index < count_ ? items_[index] : NoKeywords; }
    const IPE_Object* begin() const noexcept { return items_; }
    const IPE_Object* end() const noexcept { return items_ + count_; }
    // The arguments from `first` on, with the same keywords.
    IPE_Arguments from(int first) const {
        return first >= count_ ? IPE_Arguments(items_, 0, *keywords_)
                               : IPE_Arguments(items_ + first, count_ - first, *keywords_);
    }

    // Keywords. Each Part of the library says whether presence or truth counts.
    bool hasKeywords() const noexcept { return !keywords_->isNull(); }
    IPE_Object keyword(std::string_view name) const;  // null when absent
    bool hasKeyword(std::string_view name) const { return !keyword(name).isNull(); }
    bool keywordTrue(
        std::string_view name) const;  // present, and true by __nonzero__ with the int and bool rules
    int64_t keywordInt(std::string_view name, int64_t absent) const;  // by __int__
    // The keyword dictionary; a new empty one when there is none, so never null. Not to be changed by the
    // callee.
    IPE_Object keywords() const;
    const IPE_Object& keywordsOrNull() const noexcept { return *keywords_; }
    // A new tuple of the arguments.
    IPE_Object tuple() const;

    // Reads by position, for arguments that check() has passed or that convert: c_str, __int__.
    std::string_view text(int index) const;
    int64_t integer(int index) const;

    // Checks the arguments against a spec such as "s|so": o any, s string, i int, l list, | optional from
    // here on and more arguments than named allowed, * ends the scan. Raises TypeError "Index $index requires
    // $requires arguments, $given given" or "$name requires $requires arguments, $given given".
    void check(const char* spec, const char* name) const;

    static const IPE_Object NoKeywords;

  private:
    const IPE_Object* items_ = nullptr;
    int count_ = 0;
    const IPE_Object* keywords_ = &NoKeywords;
};

// Calls a value with up to a few arguments from native code: IPE_Call(function, a, b). The receiver rule of
// scripts is not applied here; code that calls back into scripts uses IPE_CallScript
// (ipe/language/ipe_scriptcall.h).
template <class... Values>
IPE_Object IPE_Call(const IPE_Object& callee, const Values&... values) {
    const IPE_Object items[sizeof...(values) + 1] = {values..., IPE_Object()};
    return callee->__call__(IPE_Arguments(items, static_cast<int>(sizeof...(values))));
}
