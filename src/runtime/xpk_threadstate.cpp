// Thread state and trace frames.
//
// Frames are not independent: a push copies the counts and the free position of the frame below, so an entry
// costs two copies into the thread's own text buffer and no allocation. Frames are balanced by XPK_TraceScope
// alone.
#include "runtime/xpk_threadstate.h"

#include <cstring>

#include "runtime/epa_shutdown.h"
#include "runtime/xpk_exception.h"

thread_local constinit XPK_ThreadState* xpk_thread_state = nullptr;

namespace {

XPK_ThreadHooks thread_hooks;

[[noreturn]] void traceFull(const char* message) {
    throw XPK_Exception(__FILE__, __LINE__, "SystemError", "", message);
}

// Copies `text` with a terminator to the free position of the current frame.
const char* keep(XPK_Trace& trace, std::string_view text) {
    XPK_Trace::Frame& frame = trace.frames[trace.depth];
    char* place = trace.text + frame.free;
    text.copy(place, text.size());
    place[text.size()] = 0;
    frame.free = static_cast<uint16_t>(frame.free + text.size() + 1);
    return place;
}

void needRoom(const XPK_Trace& trace, size_t size) {
    if (static_cast<size_t>(XPK_Trace::TextLimit - trace.frames[trace.depth].free) < size)
        traceFull("The trace system does not support > 8192 bytes of trace data");
}

}  // namespace

void XPK_SetThreadHooks(XPK_ThreadHooks hooks) { thread_hooks = hooks; }

XPK_ThreadScope::XPK_ThreadScope(bool primary, EPA_ThreadPassportImpl* passport) : outer_(xpk_thread_state) {
    state_.primary = primary;
    state_.passport = passport;
    xpk_thread_state = &state_;
    if (!outer_ && thread_hooks.enter) thread_hooks.enter();
}

XPK_ThreadScope::~XPK_ThreadScope() {
    while (void* block = state_.spareNumbers) {
        state_.spareNumbers = *static_cast<void**>(block);
        XPK_Free(block);
    }
    XPK_FlushThreadCaches();
    if (!outer_ && thread_hooks.leave) thread_hooks.leave();
    xpk_thread_state = outer_;
}

void XPK_TraceScope::XPK_TracePush(XPK_ThreadState* state) {
    XPK_Trace& trace = state->trace;
    if (trace.depth + 1 >= XPK_Trace::FrameLimit) {
        request_shutdown();
        return;
    }
    trace.frames[trace.depth + 1] = trace.frames[trace.depth];
    ++trace.depth;
}

void XPK_TraceString(XPK_ThreadState* state, const char* name, const char* value) {
    XPK_TraceString(state, name, value ? std::string_view(value) : std::string_view("[value==NULL!]"));
}

void XPK_TraceString(XPK_ThreadState* state, const char* name, std::string_view value) {
    if (!state || !name) return;
    XPK_Trace& trace = state->trace;
    std::string_view key = name;
    if (value.size() >= XPK_Trace::ValueLimit) {
        needRoom(trace, key.size() + XPK_Trace::ValueLimit + 3);
        value = value.substr(0, XPK_Trace::ValueLimit);
    } else {
        needRoom(trace, key.size() + value.size() + 2);
    }
    XPK_Trace::Frame& frame = trace.frames[trace.depth];
    if (frame.strings >= XPK_Trace::EntryLimit)
        traceFull("The trace system does not support > 128 active strings");
    const char* keptKey = keep(trace, key);
    trace.strings[frame.strings++] = {keptKey, keep(trace, value)};
}

void XPK_TraceNumber(XPK_ThreadState* state, const char* name, int64_t value) {
    if (!state || !name) return;
    XPK_Trace& trace = state->trace;
    std::string_view key = name;
    needRoom(trace, key.size() + 1);
    XPK_Trace::Frame& frame = trace.frames[trace.depth];
    if (frame.numbers >= XPK_Trace::EntryLimit)
        traceFull("The trace system does not support > 128 active strings");
    trace.numbers[frame.numbers++] = {keep(trace, key), value};
}
