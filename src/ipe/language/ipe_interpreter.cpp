// The interpreter object: its namespaces, names, recycled locals, and the road to `run`.
//
// A name is searched in locals, globals and built-ins. Each name token keeps the slot where the last look-up
// found it, one for each of the three, so that a name met again costs one compare. The hint is a guess that
// the slot's key confirms; see ipe_dicttype.h.
#include "ipe/language/ipe_interpreter.h"

#include <pthread.h>

#include "ipe/language/ipe_exceptiontype.h"
#include "ipe/values/ipe_exceptiondetails.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/epa_threadpassport.h"

std::atomic<bool> IPE_Interpreter::traceByDefault{false};
std::atomic<bool> IPE_Interpreter::profileByDefault{false};

namespace {

// Below this much stack left, scripts get an exception instead of a fault.
constexpr size_t StackReserve = 256 * 1024;

const char* stackLimit() {
    pthread_attr_t attributes;
    void* base = nullptr;
    size_t size = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return nullptr;
    pthread_attr_getstack(&attributes, &base, &size);
    pthread_attr_destroy(&attributes);
    return static_cast<const char*>(base) + StackReserve;
}

void component(bool up, const char*, void*) {
    if (!up) return;
    IPE_InitSingletons();
    IPE_SetStackReporter(IPE_ReportStack);
}
const EPA_Component registered(component, nullptr, "IPE_Interpreter");

}  // namespace

IPE_Frame::IPE_Frame(IPE_Interpreter& interpreter, Type type)
    : parent(nullptr),
      interpreter(&interpreter),
      locals(&interpreter.root()),
      globals(&interpreter.root()),
      builtins(&interpreter.builtins()),
      source(nullptr),
      depth(0),
      type(type) {
    if (IPE_Frame* top = IPE_CurrentFrame()) depth = top->depth;
}

void IPE_FrameScope::tooDeep() { XPK_Raise("RuntimeError", "IPE Call Stack Too Deep").raise(); }

IPE_Interpreter* IPE_Interpreter::current() noexcept {
    IPE_Frame* frame = IPE_CurrentFrame();
    return frame ? frame->interpreter : nullptr;
}

IPE_Interpreter::IPE_Interpreter()
    : tracing(traceByDefault), profiling(profileByDefault), stackLimit_(stackLimit()) {
    IPE_InitSingletons();
    builtins_ = IPE_New<IPE_ModuleBuiltin>();
    root_ = IPE_New<IPE_ModuleShared>();
    loaded_ = IPE_New<IPE_ModuleShared>();
    builtins_->__bind__();
}

IPE_Interpreter::~IPE_Interpreter() {
    root_->clear();
    loaded_->clear();
    builtins_->clear();
}

void IPE_Interpreter::run(std::string_view module) {
    IPE_Frame frame(*this, IPE_Frame::Root);
    IPE_FrameScope scope(frame);
    root().dictionary().setText("__module__", IPE_String(module));
    root().dictionary().setText("__builtins__", builtins_);
    importModule(frame, module, true);
}

void IPE_Interpreter::stackExhausted() { XPK_Raise("RuntimeError", "Maximum stack depth exceded").raise(); }

IPE_Object IPE_Interpreter::takeLocals(bool wide) {
    auto& spare = spareLocals_[wide];
    if (spare.empty()) return IPE_New<IPE_ModuleShared>();
    IPE_Object locals = std::move(spare.back());
    spare.pop_back();
    return locals;
}

void IPE_Interpreter::giveLocals(IPE_Object locals) noexcept {
    constexpr size_t Kept = 32;
    auto& dictionary = locals.as<IPE_ModuleShared>()->dictionary();
    auto& spare = spareLocals_[dictionary.slots() > SmallLocals];
    if (locals.counted()->references() != 1 || spare.size() >= Kept) return;
    if (dictionary.isCleared() || dictionary.references() != 1) return;
    dictionary.recycle();
    if (spare.capacity() < Kept) spare.reserve(Kept);
    spare.push_back(std::move(locals));
}

IPE_Object IPE_Interpreter::lookup(IPE_Frame& frame, IPE_StringType* name, bool skipLocals) {
    if (!skipLocals)
        if (IPE_Type* value = frame.locals->dictionary().findName(name)) return IPE_Object(value);
    if (IPE_Type* value = frame.globals->dictionary().findName(name)) return IPE_Object(value);
    uint32_t hint = UINT32_MAX;
    if (IPE_Type* value = frame.builtins->findName(name, hint)) return IPE_Object(value);
    return specialName(frame, name);
}

IPE_Object IPE_Interpreter::specialName(IPE_Frame& frame, IPE_StringType* name) {
    std::string_view text = name->view();
    if (text == "_L") return IPE_Object(frame.locals);
    if (text == "_G") return IPE_Object(frame.globals);
    if (text == "_B") return IPE_Object(frame.builtins);
    XPK_ThreadState* state = XPK_CurrentThread();
    if (state && state->passport) {
        if (text == "tls") return state->passport->tls();
        if (text == "tls_luacode") return state->passport->tlsLuaCode();
    }
    return {};
}

void IPE_Interpreter::syntaxFault(IPE_ProgramLine& source) {
    source.sync();
    XPK_Raise("SyntaxError", "SyntaxError: $decode").string("decode", source.positionText()).raise();
}

void IPE_Interpreter::indentFault(IPE_ProgramLine& source, int need) {
    XPK_Raise("IndentError",
              source.lineIndent() >= need ? "Expecting indent of $need" : "Expecting indent of $need or more")
        .number("need", need)
        .raise();
}
