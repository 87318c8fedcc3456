// IPE_ModuleShared, a script namespace; IPE_ModuleBuiltin, the namespace searched last; IPE_OldClassType, an
// instance.
#pragma once

#include "ipe/object/ipe_moduletype.h"
#include "ipe/values/ipe_dicttype.h"

// What an import fills, and the locals of every call. Calling it makes an instance by copying it.
class IPE_ModuleShared final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    IPE_ModuleShared() : IPE_ModuleType(TypeName) {}
    IPE_Object __call__(const IPE_Arguments& arguments) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void clear() override;
};

// Every name a script can call without an import. An unknown name is offered once to the hook
// `__lazy_load__`.
class IPE_ModuleBuiltin final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    IPE_ModuleBuiltin();
    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    // Publishes the function table (ipe/builtins).
    void __bind__() override;
    void clear() override;
    // The interpreter's look-up: the attribute, or what the hook makes of it, or null.
    IPE_Type* findName(IPE_StringType* name, uint32_t& hint) {
        if (IPE_Type* value = attributes_->findHinted(name, hint)) [[likely]]
            return value;
        return findLazily(name);
    }

  private:
    IPE_Type* findLazily(IPE_StringType* name);
    IPE_Object tried_;
};

// Registers a built-in function: a static object per function or family. Names end up in every interpreter's
// built-ins. `spec` is checked before the call when not null.
struct IPE_Builtin {
    const char* name;
    const char* spec;
    IPE_NativeFunction function;
};
struct IPE_BuiltinTable {
    IPE_BuiltinTable(const IPE_Builtin* rows, size_t count);
    template <size_t N>
    explicit IPE_BuiltinTable(const IPE_Builtin (&rows)[N]) : IPE_BuiltinTable(rows, N) {}
};

// The registered row of a built-in function, or null; for native callers and tests.
const IPE_Builtin* IPE_FindBuiltin(std::string_view name);

// An instance, type name "ClassType": a dictionary, an object it extends, and any number it implements.
class IPE_OldClassType final : public IPE_Type {
  public:
    static const char TypeName[];
    static constexpr int MaximumDepth = 10;
    // `name` is the class's dotted name.
    explicit IPE_OldClassType(const IPE_Object& name);
    ~IPE_OldClassType() override;

    IPE_Object __call__(const IPE_Arguments& arguments) override;
    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    void __setattr__(const IPE_Object& key, const IPE_Object& value) override {
        dictionary_->set(key, value);
    }
    void __delattr__(const IPE_Object& key) override { dictionary_->remove(key); }
    IPE_Object __dir__() override;
    IPE_Object __getitem__(const IPE_Object& key) override;
    void __setitem__(const IPE_Object& key, const IPE_Object& value) override;
    void __delitem__(const IPE_Object& key) override;
    IPE_Object __enter__() override;
    void __exit__() override;
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;

    IPE_DictType& dictionary() const noexcept { return *dictionary_; }
    // The extended object, null if the class has no __new__ or it returned nothing.
    const IPE_Object& extends() const noexcept { return extends_; }

  private:
    friend class IPE_ModuleShared;
    IPE_Object method(IPE_StringType* name, const char* message);
    IPE_Object extends_;
    IPE_Object implements_;
    IPE_DictType* dictionary_;  // counted
};
