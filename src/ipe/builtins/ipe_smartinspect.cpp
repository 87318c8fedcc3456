// The process-wide inspection object. It answers from the registry, the pools and the thread manager at the
// moment of the call, and never hands out anything that another thread could change.
#include "ipe/builtins/ipe_smartinspect.h"

#include <unistd.h>

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_process.h"
#include "runtime/epa_threadmanager.h"
#include "runtime/xpk_memory.h"

namespace {

constexpr const char* MethodNames[] = {"memory", "modules", "threads"};
enum { Memory, Modules, Threads };

IPE_Object listOf(const std::vector<std::string>& texts) {
    IPE_Object list = IPE_NewList();
    for (const std::string& text : texts) list.as<IPE_ListType>()->append(IPE_String(text));
    return list;
}

// Resident pages are the second figure of the process's statm line.
int64_t residentBytes() {
    std::string content;
    if (platform::readSystemFile("/proc/self/statm", content) != 0) return 0;
    size_t blank = content.find(' ');
    return blank == std::string::npos
               ? 0
               : std::strtoll(content.c_str() + blank, nullptr, 10) * sysconf(_SC_PAGESIZE);
}

class SmartInspectType final : public IPE_Type {
  public:
    static const char TypeName[];
    SmartInspectType() : IPE_Type(TypeName) {}

    IPE_Object __getattr__(const IPE_Object& key, int depth) override {
        for (int i = 0; i < static_cast<int>(std::size(MethodNames)); ++i)
            if (key->is_text(MethodNames[i])) return IPE_MethodOf(this, i);
        return IPE_Type::__getattr__(key, depth);
    }

    IPE_Object __dir__() override {
        IPE_Object list = IPE_NewList();
        for (const char* name : MethodNames) list.as<IPE_ListType>()->append(IPE_String(name));
        return list;
    }

    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override {
        arguments.check("", MethodNames[method]);
        switch (method) {
            case Memory: return memory();
            case Modules: return modules();
            case Threads: return IPE_ThreadSummary();
        }
        return {};
    }

  private:
    static IPE_Object memory() {
        IPE_Object pools = IPE_NewList();
        for (int i = 0; i < XPK_PoolClasses; ++i) {
            XPK_PoolFigures figures = XPK_PoolFiguresOf(i);
            IPE_Object pool = IPE_NewDict();
            IPE_Dict_Set(pool, "size", IPE_Int(static_cast<int64_t>(XPK_PoolSizes[i])));
            IPE_Dict_Set(pool, "chunks", IPE_Int(figures.chunks));
            IPE_Dict_Set(pool, "used", IPE_Int(figures.used));
            pools.as<IPE_ListType>()->append(std::move(pool));
        }
        IPE_Object result = IPE_NewDict();
        IPE_Dict_Set(result, "resident", IPE_Int(residentBytes()));
        IPE_Dict_Set(result, "pools", std::move(pools));
        return result;
    }

    static IPE_Object modules() {
        IPE_Object result = IPE_NewDict();
        for (const std::string& branch : IPE_ModuleRegistry::branches())
            IPE_Dict_Set(result, branch, listOf(IPE_ModuleRegistry::branchNames(branch)));
        return result;
    }
};

const char SmartInspectType::TypeName[] = "SmartInspectType";

}  // namespace

IPE_Object IPE_SmartInspect() {
    static const IPE_Object instance = [] {
        IPE_Object made = IPE_New<SmartInspectType>();
        made.counted()->makeImmortal();
        return made;
    }();
    return instance;
}
