// XPK_ThreadState: what the runtime keeps for a thread, and the trace frames in it.
//
// A state lives on the stack of the thread's entry function (XPK_ThreadScope) and is found through one
// thread-local pointer. Everything in it belongs to its thread and takes no lock.
#pragma once

#include <cstdint>

#include <string>
#include <string_view>

#include "runtime/epa_lock.h"
#include "runtime/xpk_memory.h"

class EPA_ThreadPassportImpl;
class IPE_Frame;

// The stack of scoped key and value entries from which exceptions take their fields. Pushing a frame copies
// the counts of the frame below: an entry is visible in frames pushed later and forgotten by the pop.
struct XPK_Trace {
    static constexpr int FrameLimit = 512;
    static constexpr int EntryLimit = 128;
    static constexpr int TextLimit = 8192;
    static constexpr int ValueLimit = 255;  // bytes kept of a value
    struct Frame {
        uint16_t numbers, strings, free;
    };
    struct Number {
        const char* name;
        int64_t value;
    };
    struct String {
        const char* name;
        const char* value;
    };
    int depth = 0;
    Frame frames[FrameLimit] = {};
    Number numbers[EntryLimit];
    String strings[EntryLimit];
    char text[TextLimit];
};

struct XPK_ThreadState {
    static constexpr int ScriptFrameLimit = 512;

    char name[64] = {};
    EPA_ThreadPassportImpl* passport = nullptr;  // owned by the thread manager's slot; absent until it exists
    bool primary = false;
    // The system call that this thread is inside at this moment, for crash reports.
    int apiLine = 0;
    const char* apiFile = nullptr;
    const char* apiName = nullptr;
    XPK_PoolCache pools;
    // Blocks of dead numbers for the next ones: the primary thread's stand-in for the pools. See
    // ipe_numbers.h.
    void* spareNumbers = nullptr;
    int spareNumberCount = 0;
    EPA_RecursiveLock lock;  // becomes the passport's lock when the thread announces itself
    XPK_Trace trace;
    // Script frames: call-level frames only, innermost last.
    int scriptFrames = 0;
    IPE_Frame* scriptFrame[ScriptFrameLimit] = {};
    uint32_t locale = 0;  // Windows locale id set by `_system`, 0 for the user's default
    // Log context of the two-step native log.
    std::string logChannel;
    int logLevel = 0;
    std::string logPath;
    int logLine = 0;
};

extern thread_local constinit XPK_ThreadState* xpk_thread_state;
// The calling thread's state, or null on a thread that has none.
inline XPK_ThreadState* XPK_CurrentThread() noexcept { return xpk_thread_state; }

// Gives the calling thread a state for the lifetime of the object: pool caches, trace frames, fault
// translator. `primary` is true for the first thread of the process alone.
class XPK_ThreadScope {
  public:
    explicit XPK_ThreadScope(bool primary, EPA_ThreadPassportImpl* passport = nullptr);
    ~XPK_ThreadScope();
    XPK_ThreadScope(const XPK_ThreadScope&) = delete;
    XPK_ThreadScope& operator=(const XPK_ThreadScope&) = delete;
    XPK_ThreadState& state() noexcept { return state_; }

  private:
    XPK_ThreadState state_;
    XPK_ThreadState* outer_;
};

// Notes the system call that the thread is inside while the object lives. `name` is a literal.
class XPK_ApiScope {
  public:
    explicit XPK_ApiScope(const char* name, const char* file = __builtin_FILE(),
                          int line = __builtin_LINE()) noexcept
        : state_(XPK_CurrentThread()) {
        if (!state_) return;
        state_->apiLine = line;
        state_->apiFile = file;
        state_->apiName = name;
    }
    ~XPK_ApiScope() {
        if (!state_) return;
        state_->apiLine = 0;
        state_->apiFile = state_->apiName = nullptr;
    }
    XPK_ApiScope(const XPK_ApiScope&) = delete;
    XPK_ApiScope& operator=(const XPK_ApiScope&) = delete;

  private:
    XPK_ThreadState* state_;
};

// Pushes a trace frame and pops it on every way out. At depth 512 a push asks for process shutdown and pushes
// nothing; the pop then removes an older frame. On a thread without state everything here does nothing.
class XPK_TraceScope {
  public:
    explicit XPK_TraceScope(XPK_ThreadState* state = XPK_CurrentThread()) : state_(state) {
        if (state_) XPK_TracePush(state_);
    }
    ~XPK_TraceScope() {
        if (state_ && state_->trace.depth > 0) --state_->trace.depth;
    }
    XPK_TraceScope(const XPK_TraceScope&) = delete;
    XPK_TraceScope& operator=(const XPK_TraceScope&) = delete;
    XPK_ThreadState* state() noexcept { return state_; }

  private:
    static void XPK_TracePush(XPK_ThreadState* state);
    XPK_ThreadState* state_;
};

// Adds an entry to the current frame. A null name does nothing; a null value is stored as "[value==NULL!]";
// at most 255 bytes of a value are kept. Raises SystemError when 128 entries or 8192 bytes are active.
void XPK_TraceString(XPK_ThreadState* state, const char* name, std::string_view value);
void XPK_TraceString(XPK_ThreadState* state, const char* name, const char* value);
void XPK_TraceNumber(XPK_ThreadState* state, const char* name, int64_t value);

// Called for each new thread state and before its end; the fault translator registers itself here.
struct XPK_ThreadHooks {
    void (*enter)() = nullptr;
    void (*leave)() = nullptr;
};
void XPK_SetThreadHooks(XPK_ThreadHooks hooks);
