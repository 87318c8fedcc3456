// IPE_Frame: the execution record of a block.
//
// Frames live on the native stack of the handler that runs the block. A child copies depth, interpreter and
// the three namespaces from its parent, so a block shares its function's locals: there is no block scope.
// Call-level frames (function bodies, module bodies, roots) stand on the thread's script frame stack too;
// native code finds the current frame there.
#pragma once

#include <cstdint>

#include "ipe/object/ipe_type.h"
#include "runtime/xpk_threadstate.h"

class IPE_Interpreter;
class IPE_CodeType;
class IPE_ModuleBuiltin;
class IPE_ModuleShared;
class IPE_ProgramLine;

class IPE_Frame {
  public:
    enum Type : uint8_t { Plain = 0, Function = 2, Branch = 3, Loop = 4, Try = 6, Root = 10, Module = 12 };
    enum State : uint8_t { Normal = 0, Broken = 7, Continued = 8 };

    // A block inside `parent`.
    IPE_Frame(IPE_Frame& parent, Type type) noexcept
        : parent(&parent),
          interpreter(parent.interpreter),
          locals(parent.locals),
          globals(parent.globals),
          builtins(parent.builtins),
          source(parent.source),
          depth(parent.depth),
          type(type) {}
    // A call-level frame over `interpreter`'s namespaces.
    IPE_Frame(IPE_Interpreter& interpreter, Type type);
    ~IPE_Frame() = default;
    IPE_Frame(const IPE_Frame&) = delete;
    IPE_Frame& operator=(const IPE_Frame&) = delete;

    IPE_Frame* parent;
    IPE_Interpreter* interpreter;
    // Borrowed: whoever makes a call-level frame holds the namespaces.
    IPE_ModuleShared* locals;
    IPE_ModuleShared* globals;
    IPE_ModuleBuiltin* builtins;
    IPE_ProgramLine* source;  // the cursor that runs here
    IPE_Object result;        // of `return`, in function frames
    IPE_Object decorators;    // list made on first use, consumed by the next `def`
    IPE_CodeType* code = nullptr;
    int32_t depth;
    Type type;
    State state = Normal;
    bool leaving = false;  // the block must stop at once
};

// Puts a call-level frame on the thread's stack for a scope. RuntimeError "IPE Call Stack Too Deep" at the
// 513th.
class IPE_FrameScope {
  public:
    explicit IPE_FrameScope(IPE_Frame& frame) : state_(XPK_CurrentThread()) {
        if (state_->scriptFrames >= XPK_ThreadState::ScriptFrameLimit) [[unlikely]]
            tooDeep();
        state_->scriptFrame[state_->scriptFrames++] = &frame;
    }
    ~IPE_FrameScope() { --state_->scriptFrames; }
    IPE_FrameScope(const IPE_FrameScope&) = delete;
    IPE_FrameScope& operator=(const IPE_FrameScope&) = delete;

  private:
    [[noreturn]] static void tooDeep();
    XPK_ThreadState* state_;
};

// The innermost call-level frame of the calling thread, or null outside scripts.
inline IPE_Frame* IPE_CurrentFrame() noexcept {
    XPK_ThreadState* state = XPK_CurrentThread();
    return state && state->scriptFrames > 0 ? state->scriptFrame[state->scriptFrames - 1] : nullptr;
}
