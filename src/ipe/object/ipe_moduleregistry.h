// The module registry: dotted paths to nodes, process-wide, under one critical section.
//
// A path is split at its last '.': the part before is the branch, the part after the leaf; a path with no '.'
// lies in the branch of the empty name. So the registry has two levels, whatever the number of dots. Nodes
// are never removed and are read-only once registered; a later registration of a path replaces the earlier.
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "ipe/object/ipe_moduletype.h"

// A registry entry: knows how to import itself into a frame. The default import raises NotImplementedError
// "IPE_ModuleNode::import".
class IPE_ModuleNode : public IPE_Type {
  public:
    using IPE_Type::IPE_Type;
    virtual void import(IPE_Frame& frame);
};

// A native entry: a name, such as "create", and the factory that the importing namespace gets under it.
class IPE_ModuleBridge : public IPE_ModuleNode {
  public:
    static const char TypeName[];
    IPE_ModuleBridge(const char* name, IPE_NativeFunction factory)
        : IPE_ModuleNode(TypeName), name_(name), factory_(factory) {}
    void import(IPE_Frame& frame) override;
    const char* name() const noexcept { return name_; }
    IPE_NativeFunction factory() const noexcept { return factory_; }

  private:
    const char* name_;
    IPE_NativeFunction factory_;
};

// Leaf name to node.
class IPE_ModuleBranch : public IPE_Type {
  public:
    static const char TypeName[];
    IPE_ModuleBranch();
    ~IPE_ModuleBranch() override;
    IPE_DictType& dictionary() const noexcept { return *nodes_; }

  private:
    IPE_DictType* nodes_;
};

class IPE_ModuleRegistry {
  public:
    // ApplicationError "Unable to cast to IPE_ModuleBranch" when the branch key holds another type.
    static void register_(std::string_view path, const IPE_Object& node);
    static void registerNative(const char* path, const char* name, IPE_NativeFunction factory);
    // The node; a missing branch raises ImportError "No module named '$path'", a missing leaf KeyError
    // "$key".
    static IPE_Object lookup(std::string_view path);
    // The node or null.
    static IPE_Object find(std::string_view path);
    static std::vector<std::string> branches();
    static std::vector<std::string> branchNames(std::string_view path);
    // Held while a source file loads and while a bundle's module is installed.
    static std::recursive_mutex& lock();
};

// A lifecycle component that publishes one native module: a static object per module.
struct IPE_NativeModule {
    IPE_NativeModule(const char* path, const char* name, IPE_NativeFunction factory,
                     const char* depends = nullptr);
};
