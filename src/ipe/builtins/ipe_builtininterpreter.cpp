// The built-in function `interpreter`: diagnostics and embedding, one function per sub-command behind a
// table.
//
// Sub-commands that ask for the running script work on the innermost call-level frame of the thread; without
// one, as from native code, they raise. `global` gives a snapshot, since the live store belongs to all
// threads.
#include <iterator>

#include "ipe/builtins/ipe_builtinsupport.h"
#include "ipe/builtins/ipe_smartinspect.h"
#include "ipe/language/ipe_exceptiontype.h"
#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_programloader.h"
#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_process.h"
#include "runtime/epa_threadmanager.h"

IPE_Object IPE_ThreadSummary() {
    int maximum = 0, running = 0;
    EPA_ThreadManager::instance().count(maximum, running);
    IPE_Object result = IPE_NewDict();
    IPE_Dict_Set(result, "maximum", IPE_Int(maximum));
    IPE_Dict_Set(result, "running", IPE_Int(running));
    return result;
}

namespace {

// The arguments behind the sub-command's name.
using Arguments = const IPE_Arguments&;

[[noreturn]] void unknownOption() {
    XPK_Raise("RuntimeError", "Unknown option passed to interpeter").raise();
}

IPE_Interpreter& running() {
    IPE_Interpreter* interpreter = IPE_Interpreter::current();
    if (!interpreter) XPK_Raise("RuntimeError", "No script is running on this thread").raise();
    return *interpreter;
}

IPE_Object listOf(const std::vector<std::string>& texts) {
    IPE_Object list = IPE_NewList();
    for (const std::string& text : texts) list.as<IPE_ListType>()->append(IPE_String(text));
    return list;
}

// --- Modules.

IPE_Object moduleGet(Arguments a) {
    a.check("s", "module_get");
    return IPE_ModuleRegistry::lookup(a.text(0));
}

IPE_Object moduleSet(Arguments) { return {}; }

IPE_Object modules(Arguments a) {
    a.check("|s", "modules");
    return listOf(a.size() > 0 ? IPE_ModuleRegistry::branchNames(a.text(0)) : IPE_ModuleRegistry::branches());
}

// The optional last text is a prefix for the modules' paths.
IPE_Object parse(Arguments a) {
    a.check("s|ss", "parse");
    std::string file(a.size() > 1 ? a.text(1) : "<text>");
    return listOf(load_source_text(a.size() > 2 ? a.text(2) : "", a.text(0), file));
}

IPE_Object load(Arguments a) {
    a.check("s|s", "load");
    return listOf(load_source(a.size() > 1 ? a.text(1) : "", std::string(a.text(0))));
}

// --- Globals.

IPE_Object globals(Arguments) {
    IPE_Object result = IPE_NewDict();
    IPE_List names(IPE_GlobalStore().names());
    for (int32_t i = 0; i < names.count(); ++i)
        if (IPE_Object value = IPE_GlobalStore().get(names[i]))
            result.as<IPE_DictType>()->set(names[i], std::move(value));
    return result;
}

IPE_Object globalSet(Arguments a) {
    a.check("so", "global_set");
    IPE_GlobalStore().set(a[0], a[1]);
    return {};
}

IPE_Object builtin(Arguments) { return running().builtinsObject(); }

// --- The thread and the process.

IPE_Object memoryPack(Arguments) {
    XPK_FlushThreadCaches();
    return {};
}

IPE_Object priority(Arguments a) {
    a.check("i", "priority");
    int64_t level = a.integer(0);
    XPK_ThrowSystemError("SetThreadPriority", level < -2 || level > 2
                                                  ? EINVAL
                                                  : platform::setThreadPriority(static_cast<int>(level)));
    return {};
}

IPE_Object threadSummary(Arguments) { return IPE_ThreadSummary(); }

IPE_Object breakpoint(Arguments) { return {}; }

// --- Counting and tracing.

void resetCoverage() {
    for (const auto& segment : running().program().segments())
        for (IPE_LineCounters& counters : segment->counters) counters = {};
}

IPE_Object dictAt(const IPE_Object& dict, const IPE_Object& key) {
    IPE_Object value(dict.as<IPE_DictType>()->find(key));
    if (value) return value;
    value = IPE_NewDict();
    dict.as<IPE_DictType>()->set(key, value);
    return value;
}

// File to line to statement to a dict of hits, calls and nanoseconds, for the lines that have run.
IPE_Object coverage() {
    IPE_Object result = IPE_NewDict();
    for (const auto& segment : running().program().segments()) {
        IPE_Object file = IPE_String(segment->file);
        for (uint32_t i = 0; i < segment->counters.size() && i < segment->lines.size(); ++i) {
            const IPE_LineCounters& counters = segment->counters[i];
            if (counters.hits == 0 && counters.calls == 0) continue;
            IPE_Object line = dictAt(dictAt(result, file), IPE_Int(segment->lines[i].source));
            IPE_Object counts = IPE_NewDict();
            IPE_Dict_Set(counts, "hits", IPE_Int(static_cast<int64_t>(counters.hits)));
            IPE_Dict_Set(counts, "calls", IPE_Int(static_cast<int64_t>(counters.calls)));
            IPE_Dict_Set(counts, "nanoseconds", IPE_Int(static_cast<int64_t>(counters.nanoseconds)));
            IPE_Dict_Set(line, IPE_LineText(*segment, i), std::move(counts));
        }
    }
    return result;
}

IPE_Object getCoverage(Arguments a) {
    if (a.size() > 0) {
        if (!a[0]->is_text("reset")) unknownOption();
        resetCoverage();
        return {};
    }
    return coverage();
}

// "local" for this thread's interpreter, "global" for it and all that come, "disable" for neither.
void switchFlag(Arguments a, bool IPE_Interpreter::*flag, std::atomic<bool>& byDefault) {
    if (a.size() == 0) unknownOption();
    if (a[0]->is_text("local")) {
        running().*flag = true;
    } else if (a[0]->is_text("global")) {
        running().*flag = true;
        byDefault = true;
    } else if (a[0]->is_text("disable")) {
        running().*flag = false;
        byDefault = false;
    } else {
        unknownOption();
    }
}

IPE_Object profile(Arguments a) {
    if (a.size() > 0 && a[0]->is_text("get_coverage")) return getCoverage(a.from(1));
    if (a.size() > 0 && a[0]->is_text("reset")) {
        resetCoverage();
        return {};
    }
    switchFlag(a, &IPE_Interpreter::profiling, IPE_Interpreter::profileByDefault);
    return {};
}

IPE_Object trace(Arguments a) {
    switchFlag(a, &IPE_Interpreter::tracing, IPE_Interpreter::traceByDefault);
    return {};
}

// --- The script stack.

IPE_Object callstack(Arguments) { return IPE_ScriptStack(true); }

IPE_Object getCaller(Arguments) {
    IPE_Object result = IPE_NewDict();
    IPE_List stack(IPE_ScriptStack(true));
    if (stack.count() == 0) return result;
    for (const char* key : {"statement", "file", "line"})
        if (IPE_Type* value = PyDict_SafeCast(stack[0])->findText(key))
            IPE_Dict_Set(result, key, IPE_Object(value));
    return result;
}

IPE_Object statement(Arguments) {
    IPE_Frame* frame = IPE_CurrentFrame();
    if (!frame || !frame->source) return IPE_NewList();
    return running().program().getLineTokens(frame->source->getPosition());
}

struct Command {
    std::string_view name;
    IPE_NativeFunction function;
};

constexpr Command Commands[] = {
    {"module_get", moduleGet},
    {"module_set", moduleSet},
    {"modules", modules},
    {"global", globals},
    {"memory_pack", memoryPack},
    {"priority", priority},
    {"builtin", builtin},
    {"parse", parse},
    {"load", load},
    {"profile", profile},
    {"get_coverage", getCoverage},
    {"trace", trace},
    {"get_caller", getCaller},
    {"callstack", callstack},
    {"global_set", globalSet},
    {"statement", statement},
    {"thread_summary", threadSummary},
    {"asm_int_3", breakpoint},
};

IPE_Object builtinInterpreter(const IPE_Arguments& a) {
    for (const Command& command : Commands)
        if (a.text(0) == command.name) return command.function(a.from(1));
    unknownOption();
}

const IPE_Builtin Rows[] = {{"interpreter", "s|o", builtinInterpreter}};
const IPE_BuiltinTable registered(Rows);

}  // namespace
