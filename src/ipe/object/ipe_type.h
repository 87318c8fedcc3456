// IPE_Type: the abstract base of everything a script can touch, and the free helpers over handles.
//
// The operations stand in families below. A class overrides only what it supports; every other operation
// raises the default told beside its family. Rules for all of them:
//   - arguments are borrowed (`const IPE_Object&`), results are owned (returned by value); a null result
//   means
//     "nothing", which is not None;
//   - the object stays alive for the call because the caller holds a handle to it;
//   - a value belongs to one thread unless it is immutable; nothing here locks.
// Unless told otherwise an operation raises TypeError "<operation> is not supported".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "runtime/epa_string.h"
#include "runtime/epa_stringbuffer.h"
#include "runtime/ipe_object.h"
#include "runtime/xpk_exception.h"

class EPA_DataOutput;
class IPE_Arguments;
class IPE_Frame;

// A fixed stack of at most 32 objects: the writers' cycle guard and the limit of one expression. Entries are
// counted. Pushing null raises RuntimeError "Attempt to push a null object", a 33rd push "Maximum stack depth
// exceded", a pop of an empty stack "Attempt to pop on an empty stack".
class IPE_StackList {
  public:
    static constexpr int Limit = 32;
    IPE_StackList() = default;
    ~IPE_StackList();
    IPE_StackList(const IPE_StackList&) = delete;
    IPE_StackList& operator=(const IPE_StackList&) = delete;
    void push(EPA_Counted* object);
    void push(const IPE_Object& object) { push(object.counted()); }
    void pop();
    bool contains(const EPA_Counted* object) const noexcept;
    int count() const noexcept { return count_; }

  private:
    int count_ = 0;
    EPA_Counted* items_[Limit];
};

// Pushes for a scope.
class IPE_StackScope {
  public:
    IPE_StackScope(IPE_StackList& stack, EPA_Counted* object) : stack_(stack) { stack_.push(object); }
    ~IPE_StackScope() { stack_.pop(); }
    IPE_StackScope(const IPE_StackScope&) = delete;
    IPE_StackScope& operator=(const IPE_StackScope&) = delete;

  private:
    IPE_StackList& stack_;
};

// What the two text writers are told, and where they write.
struct IPE_PrintContext {
    EPA_StringBuffer& out;
    bool json = false;
    bool inlined = false;  // one line, no suffixes
    bool booleansAsIntegers = false;
};

class IPE_Type : public EPA_Counted {
  public:
    using EPA_Counted::EPA_Counted;

    // --- Arithmetic: `+ - * / %` with the right operand.
    virtual IPE_Object __add__(const IPE_Object& other);
    virtual IPE_Object __sub__(const IPE_Object& other);
    virtual IPE_Object __mul__(const IPE_Object& other);
    virtual IPE_Object __div__(const IPE_Object& other);
    virtual IPE_Object __format__(const IPE_Object& other);

    // --- Calls. __call__ raises ObjectNotCallableException "The $type is not callable"; __call_untrusted__
    // is for code that is not trusted with the object and calls __call__; __callmethod__ dispatches on the
    // number that the class gave to a method and gives nothing by default. A null result becomes None at the
    // call site.
    virtual IPE_Object __call__(const IPE_Arguments& arguments);
    virtual IPE_Object __call_untrusted__(const IPE_Arguments& arguments);
    virtual IPE_Object __callmethod__(int method, const IPE_Arguments& arguments);

    // --- Comparison and identity. __cmp__ never raises for a foreign type: 0 for this very object, else 1.
    // __collate__ serves sorting and the _nocase operations and calls __cmp__. __copy__ decides what may
    // cross a thread: null means "cannot be copied". __nonzero__ is true.
    virtual int __cmp__(const IPE_Object& other);
    virtual int __collate__(const IPE_Object& other);
    virtual uint32_t __hash__();
    virtual IPE_Object __copy__();
    virtual bool __nonzero__();

    // --- Conversion. c_str gives the empty text, is_text false; only strings and secrets answer with text.
    // __str__ writes the type name, __repr__ the type name in angle brackets. translate gives the object
    // itself.
    virtual double __float__();
    virtual int64_t __int__();
    virtual int32_t __len__();
    virtual void __str__(IPE_PrintContext& context, IPE_StackList& stack);
    virtual void __repr__(IPE_PrintContext& context, IPE_StackList& stack);
    virtual const char* c_str();
    virtual bool is_text(std::string_view text);
    virtual IPE_Object translate(IPE_StackList& stack);
    virtual void save(EPA_DataOutput& out);

    // --- Attributes and items. `depth` counts delegation steps, 0 from ordinary callers. __getattr__ raises
    // AttributeNotFoundException "The $type does not have an attribute named $name", __getitem__
    // ItemNotFoundException "The $type does not have an key $key"; some classes answer null instead.
    virtual IPE_Object __getattr__(const IPE_Object& key, int depth);
    virtual void __setattr__(const IPE_Object& key, const IPE_Object& value);
    virtual void __delattr__(const IPE_Object& key);
    virtual IPE_Object __getitem__(const IPE_Object& key);
    virtual void __setitem__(const IPE_Object& key, const IPE_Object& value);
    virtual void __delitem__(const IPE_Object& key);
    virtual IPE_Object __getslice__(int32_t begin, int32_t end);
    virtual IPE_Object __dir__();

    // --- Names and binding. __bind__ is called on a value bound to a name or used as a decorator and does
    // nothing.
    virtual IPE_Object __getname__();
    virtual void __setname__(const IPE_Object& name);
    virtual void __import__(const IPE_Object& target);
    virtual void __bind__();

    // --- Control. __enter__ and __exit__ do nothing; __stop__ is false, and true makes the interpreter
    // abandon the rest of the statement; clear drops contents, which breaks reference cycles, and does
    // nothing by default.
    virtual IPE_Object __enter__();
    virtual void __exit__();
    virtual bool __stop__(IPE_Frame& frame);
    virtual void clear();
};

inline IPE_Type* IPE_Object::get() const noexcept { return static_cast<IPE_Type*>(value_); }
inline IPE_Type* IPE_Object::operator->() const noexcept { return static_cast<IPE_Type*>(value_); }

// --- Free helpers. "Null object passed to <helper>" is a RuntimeError in each.

// __copy__ through the handle.
IPE_Object IPE_Object_Copy(const IPE_Object& object);
// The thread-safe form of a value: a deep private copy of plain data, marked shared. Null when it cannot be
// copied.
IPE_Object IPE_Object_Strip(const IPE_Object& object);
// True when a.__cmp__(b) is 0. Null raises DevelopmentError "Null objects pased to compare function".
bool IPE_Object_Equal(const IPE_Object& a, const IPE_Object& b);
// True when a string handle holds this text. Null and non-strings raise RuntimeError.
bool IPE_Object_StringEquals(const IPE_Object& object, std::string_view text);
// The object itself if it is a string, otherwise a new string of its text form.
IPE_Object IPE_Object_AsString(const IPE_Object& object);
// The text form, as bytes.
std::string IPE_Object_Text(const IPE_Object& object);
// Appends the text form.
void IPE_Object__str__(const IPE_Object& object, EPA_StringBuffer& out);
// The representation form; the packed form is in ipe/values/ipe_literal.h.
std::string IPE_Object_ToString(const IPE_Object& object, bool json = false);
// Raises TypeError "Require a '$need' but given a '$have'", or RuntimeError "Null object passed to $helper".
[[noreturn]] void IPE_CastFailed(const IPE_Object& object, const char* need, const char* helper);

// The cast of each type: the handle as its class, or the errors above. `helper` names the cast in the null
// message.
template <class T>
T* IPE_SafeCast(const IPE_Object& object, const char* helper) {
    if (!object.is<T>()) IPE_CastFailed(object, T::TypeName, helper);
    return object.as<T>();
}
