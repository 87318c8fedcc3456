// Progress.
//
// Between two ticks of a step the percentage mostly stays, so publishing compares before it builds anything.
#include "census/index/fsi_progress.h"

#include <cmath>
#include <string>

#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_threadpassport.h"
#include "runtime/xpk_threadstate.h"

namespace {

constexpr const char* ThreadEntry = "progress";
constexpr std::string_view Mark = "\xF4\x8F\xBF\xBA";  // opens a translatable text: U+10FFFA

// A thread outside the manager, as tools have, keeps no variables.
IPE_Store* threadStore() {
    XPK_ThreadState* state = XPK_CurrentThread();
    if (!state || !state->passport || state->passport->variables().isNull()) return nullptr;
    return &IPE_StoreOf(state->passport->variables());
}

thread_local FSI_ProgressListener* listener = nullptr;

bool isHelper(const char* hook) { return std::string_view(hook) == "msg_helper"; }

}  // namespace

FSI_ProgressListener::FSI_ProgressListener(const IPE_Object& callable)
    : callable_(callable.is<IPE_NoneType>() ? IPE_Object() : callable), outer_(listener) {
    if (!callable_.isNull()) listener = this;
}

FSI_ProgressListener::~FSI_ProgressListener() { listener = outer_; }

FSI_Progress::FSI_Progress(const char* hook) : hook_(hook) {}

FSI_Progress::~FSI_Progress() { clear(); }

void FSI_Progress::start(std::string_view key, std::string_view text, int64_t total) {
    total_ = total;
    done_ = 0;
    phase(key, text);
}

void FSI_Progress::phase(std::string_view key, std::string_view text) {
    std::string marked(Mark);
    marked.append(key).append(",").append(text).append("]");
    template_ = IPE_String(marked);
    lastPercent_ = -1;
    publish();
}

void FSI_Progress::setLockName(std::string_view name) {
    lockName_ = name.empty() ? IPE_Object() : IPE_String(name);
}

void FSI_Progress::relay(const IPE_Object& message) { publish(message); }

void FSI_Progress::publish() {
    if (template_.isNull()) return;
    // Rounded as "%0.0f" does.
    double share = total_ > 0 && done_ > 0 ? static_cast<double>(done_) / static_cast<double>(total_) : 0;
    auto percent = static_cast<int64_t>(std::nearbyint(share * 100));
    if (percent == lastPercent_) return;
    lastPercent_ = percent;
    publish(IPE_ListOf({template_, IPE_String(std::to_string(percent))}));
}

void FSI_Progress::publish(const IPE_Object& message) {
    if (FSI_ProgressListener* heard = listener; heard && message.is<IPE_ListType>()) {
        IPE_List parts(message);
        IPE_CallScript(heard->callable_, parts[0], parts[1]);
    }
    if (IPE_Store* thread = threadStore()) {
        thread->setKey(ThreadEntry, "message", message);
        thread->setKey(ThreadEntry, hook_, message);
    }
    IPE_Store* globals = isHelper(hook_) ? IPE_FindGlobalStore() : nullptr;
    if (!globals) return;
    globals->setKey(hook_, "progress", message);
    if (lockName_.isNull()) return;
    IPE_Object entry = IPE_NewDict();
    entry.as<IPE_DictType>()->setText("message", message);
    globals->setLock(lockName_, entry);
}

void FSI_Progress::clear() noexcept {
    try {
        template_ = nullptr;
        IPE_Store* thread = threadStore();
        if (!thread) return;
        // A report that waits for an index goes on with an entry of its own.
        IPE_Object name = IPE_String(ThreadEntry);
        thread->removeKey(name, IPE_String(hook_));
        thread->removeKey(name, IPE_String("message"));
        if (IPE_Object left = thread->keys(name); left.is<IPE_ListType>() && left->__len__() == 0)
            thread->remove(name);
    } catch (const XPK_Exception&) {
        // What scripts put under the name instead is theirs.
    }
}
