// IPE_StringType, the script language's string. Immutable; shared between threads freely (hash and code
// points are built aside and published once). Its masked companion is in ipe_secrettype.h.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"

// UTF-8 text, NUL-terminated, without an embedded NUL: every factory cuts at the first one.
class IPE_StringType final : public IPE_Type {
  public:
    static const char TypeName[];
    // Bits of kind().
    enum : uint8_t { TripleQuoted = 1, Interned = 2, Special = 4, Ascii = 8, AsciiKnown = 16 };

    static IPE_Object make(std::string_view text, bool tripleQuoted = false);
    // Room for `length` bytes, to be filled through data() before anybody else sees the string.
    static IPE_Object makeUninitialised(size_t length);
    // The one immortal string of this text: names in loaded modules and the runtime's own keys. Locks a
    // process-wide table; not for run-time text. Interned strings have their hash computed. Special marks
    // __extends__ and
    // __implements__, which instances answer from fields.
    static IPE_StringType* intern(std::string_view text);

    const char* text() const noexcept { return reinterpret_cast<const char*>(this + 1); }
    char* data() noexcept { return reinterpret_cast<char*>(this + 1); }
    uint32_t bytes() const noexcept { return bytes_; }
    std::string_view view() const noexcept { return {text(), bytes_}; }
    uint8_t kind() const noexcept { return kind_.load(std::memory_order_relaxed); }
    bool isInterned() const noexcept { return kind() & Interned; }
    bool isTripleQuoted() const noexcept { return kind() & TripleQuoted; }

    uint32_t hash() noexcept {
        uint32_t known = hash_.load(std::memory_order_relaxed);
        return known ? known : computeHash();
    }
    bool isAscii() noexcept;
    // Number of code points. Invalid UTF-8 raises UnicodeError "Conversion Failue".
    int32_t length();
    // The code points, NUL-terminated, valid as long as the string.
    const char32_t* codePoints();

    IPE_Object __add__(const IPE_Object& other) override;
    IPE_Object __mul__(const IPE_Object& other) override;
    IPE_Object __format__(const IPE_Object& other) override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    int __cmp__(const IPE_Object& other) override;
    int __collate__(const IPE_Object& other) override;
    uint32_t __hash__() override { return hash(); }
    IPE_Object __copy__() override { return IPE_Object(this); }
    double __float__() override;
    int64_t __int__() override;
    int32_t __len__() override { return length(); }
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    const char* c_str() override { return text(); }
    bool is_text(std::string_view text) override { return view() == text; }
    IPE_Object translate(IPE_StackList& stack) override;
    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    IPE_Object __getitem__(const IPE_Object& key) override;
    IPE_Object __getslice__(int32_t begin, int32_t end) override;
    IPE_Object __getname__() override;
    void save(EPA_DataOutput& out) override;

    // The number of a method for __callmethod__, or -1 when there is none of this name.
    static int methodNumber(std::string_view name) noexcept;

    // The methods by name, for native callers such as the built-in functions.
    IPE_Object split(const IPE_Arguments& arguments);
    IPE_Object find(std::string_view needle);
    IPE_Object upper();
    IPE_Object lower();
    IPE_Object replace(std::string_view from, std::string_view to);
    // The text without leading and trailing bytes of `set`.
    IPE_Object strip(std::string_view set, bool left, bool right);

    // hash = hash * 33 + byte from 5381; the empty text gives 5381.
    static uint32_t hashOf(std::string_view text) noexcept;

    ~IPE_StringType() override;

  private:
    explicit IPE_StringType(uint32_t bytes) : IPE_Type(TypeName), bytes_(bytes) {}
    static IPE_StringType* create(size_t length);
    uint32_t computeHash() noexcept;
    // Half-open range of code points, already within the length.
    IPE_Object part(int32_t begin, int32_t end);
    IPE_Object characters();
    void writeJson(EPA_StringBuffer& out);
    void writeQuoted(EPA_StringBuffer& out, bool inlined) const;

    std::atomic<char32_t*> points_{nullptr};
    uint32_t bytes_;
    std::atomic<uint32_t> hash_{0};
    std::atomic<int32_t> length_{-1};
    std::atomic<uint8_t> kind_{0};
};

// Order of two UTF-8 texts in the user's locale: -1, 0 or 1. RuntimeError "Unable to compare the strings".
int IPE_CollateText(std::string_view a, std::string_view b, bool ignoreCase = false);

inline IPE_Object IPE_String(std::string_view text) { return IPE_StringType::make(text); }
inline IPE_StringType* PyString_SafeCast(const IPE_Object& object) {
    return IPE_SafeCast<IPE_StringType>(object, "PyString_SafeCast");
}
