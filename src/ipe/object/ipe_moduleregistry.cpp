// The registry of modules: a dictionary from branch path to branch, each a dictionary from leaf to node.
//
// Nodes are shared by all threads, so they are marked shared before they enter; the dictionaries themselves
// are only touched under the lock.
#include "ipe/object/ipe_moduleregistry.h"

#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_lifecycle.h"

const char IPE_ModuleBridge::TypeName[] = "ModuleBridgeType";
const char IPE_ModuleBranch::TypeName[] = "ModuleBranchType";

namespace {

struct Registry {
    std::recursive_mutex lock;
    IPE_Object root;  // branch path to IPE_ModuleBranch
};

Registry& registry() {
    static Registry instance;
    return instance;
}

IPE_DictType& root() {
    Registry& r = registry();
    if (!r.root) {
        r.root = IPE_NewDict();
        r.root.counted()->markShared();
    }
    return *r.root.as<IPE_DictType>();
}

struct Path {
    std::string_view branch, leaf;
    explicit Path(std::string_view path) {
        size_t dot = path.rfind('.');
        if (dot == std::string_view::npos) {
            leaf = path;
        } else {
            branch = path.substr(0, dot);
            leaf = path.substr(dot + 1);
        }
    }
};

IPE_ModuleBranch* branchOf(std::string_view name) {
    IPE_Object value(root().findText(name));
    if (!value) return nullptr;
    if (!value.is<IPE_ModuleBranch>())
        XPK_Raise("ApplicationError", "Unable to cast to IPE_ModuleBranch").raise();
    return value.as<IPE_ModuleBranch>();
}

std::vector<std::string> keysOf(const IPE_DictType& dict) {
    std::vector<std::string> names;
    for (uint32_t i = 0; i < dict.slots(); ++i)
        if (IPE_Type* key = dict.keyAt(i)) names.emplace_back(key->c_str());
    return names;
}

// The registry lives from the start of its component to its stop.
void component(bool up, const char*, void*) {
    std::lock_guard guard(registry().lock);
    if (up)
        root();
    else
        registry().root = nullptr;
}
const EPA_Component registered(component, nullptr, "IPE_Module");

void nativeComponent(bool up, const char* path, void* data) {
    if (!up) return;
    auto* bridge = static_cast<IPE_ModuleBridge*>(data);
    IPE_ModuleRegistry::registerNative(path, bridge->name(), bridge->factory());
}

}  // namespace

void IPE_ModuleNode::import(IPE_Frame&) {
    XPK_Raise("NotImplementedError", "IPE_ModuleNode::import").raise();
}

IPE_ModuleBranch::IPE_ModuleBranch() : IPE_Type(TypeName, IsContainer), nodes_(new IPE_DictType) {
    nodes_->retain();
    nodes_->markShared();
}

IPE_ModuleBranch::~IPE_ModuleBranch() { nodes_->release(); }

std::recursive_mutex& IPE_ModuleRegistry::lock() { return registry().lock; }

void IPE_ModuleRegistry::register_(std::string_view path, const IPE_Object& node) {
    std::lock_guard guard(lock());
    Path parts(path);
    IPE_ModuleBranch* branch = branchOf(parts.branch);
    if (!branch) {
        IPE_Object made = IPE_New<IPE_ModuleBranch>();
        made.counted()->markShared();
        IPE_Object key = IPE_String(parts.branch);
        key.counted()->markShared();
        root().set(key, made);
        branch = made.as<IPE_ModuleBranch>();
    }
    node.counted()->markShared();
    IPE_Object key = IPE_String(parts.leaf);
    key.counted()->markShared();
    branch->dictionary().set(key, node);
}

void IPE_ModuleRegistry::registerNative(const char* path, const char* name, IPE_NativeFunction factory) {
    register_(path, IPE_New<IPE_ModuleBridge>(name, factory));
}

IPE_Object IPE_ModuleRegistry::find(std::string_view path) {
    std::lock_guard guard(lock());
    Path parts(path);
    IPE_ModuleBranch* branch = branchOf(parts.branch);
    return branch ? IPE_Object(branch->dictionary().findText(parts.leaf)) : IPE_Object();
}

IPE_Object IPE_ModuleRegistry::lookup(std::string_view path) {
    std::lock_guard guard(lock());
    Path parts(path);
    IPE_ModuleBranch* branch = branchOf(parts.branch);
    if (!branch) XPK_Raise("ImportError", "No module named '$path'").string("path", path).raise();
    IPE_Object node(branch->dictionary().findText(parts.leaf));
    if (!node) XPK_Raise("KeyError", "$key").string("key", parts.leaf).raise();
    return node;
}

std::vector<std::string> IPE_ModuleRegistry::branches() {
    std::lock_guard guard(lock());
    return keysOf(root());
}

std::vector<std::string> IPE_ModuleRegistry::branchNames(std::string_view path) {
    std::lock_guard guard(lock());
    IPE_ModuleBranch* branch = branchOf(path);
    if (!branch) XPK_Raise("ImportError", "No module named '$path'").string("path", path).raise();
    return keysOf(branch->dictionary());
}

IPE_NativeModule::IPE_NativeModule(const char* path, const char* name, IPE_NativeFunction factory,
                                   const char* depends) {
    auto* bridge = new IPE_ModuleBridge(name, factory);
    bridge->makeImmortal();
    EPA_LifeCycle::registerComponent(nativeComponent, depends, nullptr, path, bridge);
}
