// IPE_ModuleType, the base of every native object with named methods, and IPE_CallAdapter, such a method as a
// value.
//
// A native class numbers its methods, publishes them in __bind__ with bindMethods, and dispatches on the
// number in
// __callmethod__. The factory calls __bind__ as its last step; binding again replaces adapters with equal
// ones.
#pragma once

#include <initializer_list>

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"

// A named method of a native object. The adapter holds its target without a count when it lies in the
// target's own attribute dictionary, so that the two form no cycle; an adapter that leaves the object holds a
// counted reference.
class IPE_CallAdapter : public IPE_Type {
  public:
    static const char TypeName[];
    // `owned` adapters keep the target alive; others must not outlive it.
    IPE_CallAdapter(EPA_Counted* target, int method, bool owned, bool notForUntrusted = false);
    ~IPE_CallAdapter() override;
    IPE_Object __call__(const IPE_Arguments& arguments) override;
    IPE_Object __call_untrusted__(const IPE_Arguments& arguments) override;
    EPA_Counted* target() const noexcept { return target_; }
    int method() const noexcept { return method_; }
    bool owned() const noexcept { return owned_; }
    bool notForUntrusted() const noexcept { return notForUntrusted_; }

  private:
    EPA_Counted* target_;
    int method_;
    bool owned_;
    bool notForUntrusted_;
};

// A value type's method as a value that keeps the value alive: what __getattr__ of strings, lists and the
// like gives.
IPE_Object IPE_MethodOf(EPA_Counted* target, int method);

using IPE_NativeFunction = IPE_Object (*)(const IPE_Arguments& arguments);

// A native function as a callable value.
class IPE_BridgeType : public IPE_Type {
  public:
    static const char TypeName[];
    explicit IPE_BridgeType(IPE_NativeFunction function) : IPE_Type(TypeName), function_(function) {}
    IPE_Object __call__(const IPE_Arguments& arguments) override { return function_(arguments); }

  private:
    IPE_NativeFunction function_;
};

struct IPE_Method {
    const char* name;
    int number;
    bool notForUntrusted = false;
};

class IPE_ModuleType : public IPE_Type {
  public:
    explicit IPE_ModuleType(const char* typeName);
    ~IPE_ModuleType() override;

    IPE_Object __getattr__(const IPE_Object& key, int depth) override;  // null when absent
    void __setattr__(const IPE_Object& key, const IPE_Object& value) override;
    void __delattr__(const IPE_Object& key) override;
    IPE_Object __getitem__(const IPE_Object& key) override { return __getattr__(key, 0); }
    void __setitem__(const IPE_Object& key, const IPE_Object& value) override { __setattr__(key, value); }
    void __delitem__(const IPE_Object& key) override { __delattr__(key); }
    IPE_Object __dir__() override;
    IPE_Object __getname__() override { return name_; }
    void __setname__(const IPE_Object& name) override { name_ = name; }
    void __import__(const IPE_Object& target) override;

    IPE_DictType& dictionary() const noexcept { return *attributes_; }

  protected:
    // Stores an adapter under each name. Call from __bind__.
    void bindMethods(std::initializer_list<IPE_Method> methods);

    IPE_DictType* attributes_;  // counted; never null
    IPE_Object name_;
};
