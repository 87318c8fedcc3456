// IPE_ListType and IPE_TupleType. Elements are counted handles, stored and never copied; a container belongs
// to one thread at a time. clear() empties recursively and leaves the container refusing every later access
// with RuntimeError "List is being accessed after clear() has been called." (Tuple likewise).
#pragma once

#include <vector>

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"

// What lists and tuples share: a growing run of handles.
class IPE_SequenceType : public IPE_Type {
  public:
    IPE_SequenceType(const char* typeName) : IPE_Type(typeName, IsContainer) {}
    int32_t count() const {
        if (cleared_) [[unlikely]]
            accessAfterClear();
        return static_cast<int32_t>(items_.size());
    }
    // Native access; `index` must be in range.
    const IPE_Object& at(int32_t index) const noexcept { return items_[static_cast<size_t>(index)]; }
    void append(IPE_Object value) {
        if (cleared_) [[unlikely]]
            accessAfterClear();
        items_.push_back(std::move(value));
    }
    void reserve(size_t size) { items_.reserve(size); }
    std::vector<IPE_Object>& items() noexcept { return items_; }
    bool isCleared() const noexcept { return cleared_; }
    // Element `index` (negative counted from the end for lists only) or null past the range.
    const IPE_Object* element(int64_t index) const {
        if (cleared_) [[unlikely]]
            accessAfterClear();
        auto size = static_cast<int64_t>(items_.size());
        if (index < 0 && typeName() == listName) index += size;
        return index >= 0 && index < size ? &items_[static_cast<size_t>(index)] : nullptr;
    }

    int __cmp__(const IPE_Object& other) override;
    int __collate__(const IPE_Object& other) override;
    uint32_t __hash__() override;
    int32_t __len__() override { return count(); }
    void clear() override;
    ~IPE_SequenceType() override = default;

  protected:
    [[noreturn]] void accessAfterClear() const;
    // The position that a key names: its integer value. A string must hold a whole decimal number, as `${0}`
    // gives it; any other raises TypeError "Require a '$need' but given a '$have'".
    static int64_t indexOf(const IPE_Object& key);
    int compare(const IPE_Object& other, bool collating);
    // Writes the elements between brackets, or brackets around an ellipsis when this is being written
    // already.
    void write(IPE_PrintContext& context, IPE_StackList& stack, bool repr, const char* brackets,
               std::string_view separator);
    // Appends the translated elements to `target`.
    void translateInto(IPE_SequenceType& target, IPE_StackList& stack);
    void saveItems(EPA_DataOutput& out, uint8_t open, uint8_t close);
    std::vector<IPE_Object> items_;
    bool cleared_ = false;

  private:
    static const char* const listName;
};

// Drops the contents of a value that is a container or knows how to clear itself. Chains of any depth are
// cleared in bounded stack: what lies deeper than a fixed level waits on the thread for the outermost call.
void IPE_ClearValue(const IPE_Object& value);

class IPE_ListType final : public IPE_SequenceType {
  public:
    static const char TypeName[];
    IPE_ListType() : IPE_SequenceType(TypeName) {}

    IPE_Object __add__(const IPE_Object& other) override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    IPE_Object __copy__() override;
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    IPE_Object translate(IPE_StackList& stack) override;
    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    IPE_Object __getitem__(const IPE_Object& key) override;
    void __setitem__(const IPE_Object& key, const IPE_Object& value) override;
    void __delitem__(const IPE_Object& key) override;
    IPE_Object __getslice__(int32_t begin, int32_t end) override;
    IPE_Object __getname__() override;
    void save(EPA_DataOutput& out) override;

    // The number of a method for __callmethod__, or -1 when there is none of this name.
    static int methodNumber(std::string_view name) noexcept;
    IPE_Object join(std::string_view separator);
    // Not stable. A list that is sorted looks empty to code that its elements' comparison calls; what such
    // code appends comes behind the sorted elements.
    void sort(bool descending);
    // `keys` is a list of (column, direction) tuples; an empty one sorts by the elements themselves.
    void sortBy(const IPE_Object& keys);
};

class IPE_TupleType final : public IPE_SequenceType {
  public:
    static const char TypeName[];
    IPE_TupleType() : IPE_SequenceType(TypeName) {}

    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    IPE_Object __copy__() override;
    uint32_t __hash__() override { return IPE_Type::__hash__(); }  // a tuple is no key
    double __float__() override;
    int64_t __int__() override;
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    IPE_Object translate(IPE_StackList& stack) override;
    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    IPE_Object __getitem__(const IPE_Object& key) override;
    void __setitem__(const IPE_Object& key, const IPE_Object& value) override;
    IPE_Object __getname__() override;
    void save(EPA_DataOutput& out) override;
    static int methodNumber(std::string_view name) noexcept;
};

inline IPE_Object IPE_NewList() { return IPE_New<IPE_ListType>(); }
inline IPE_Object IPE_NewTuple() { return IPE_New<IPE_TupleType>(); }
IPE_Object IPE_TupleOf(std::initializer_list<IPE_Object> items);
IPE_Object IPE_ListOf(std::initializer_list<IPE_Object> items);

inline IPE_ListType* PyList_SafeCast(const IPE_Object& object) {
    return IPE_SafeCast<IPE_ListType>(object, "PyList_SafeCast");
}
inline IPE_TupleType* PyTuple_SafeCast(const IPE_Object& object) {
    return IPE_SafeCast<IPE_TupleType>(object, "PyTuple_SafeCast");
}

// The thin native handles: a cast value with required fetches, "list index out of range", "tuple index out of
// range".
class IPE_List {
  public:
    explicit IPE_List(const IPE_Object& object) : object_(object), list_(PyList_SafeCast(object)) {}
    int32_t count() const { return list_->count(); }
    const IPE_Object& operator[](int32_t index) const;

  private:
    IPE_Object object_;
    IPE_ListType* list_;
};
class IPE_Tuple {
  public:
    explicit IPE_Tuple(const IPE_Object& object) : object_(object), tuple_(PyTuple_SafeCast(object)) {}
    int32_t count() const { return tuple_->count(); }
    const IPE_Object& operator[](int32_t index) const;

  private:
    IPE_Object object_;
    IPE_TupleType* tuple_;
};
