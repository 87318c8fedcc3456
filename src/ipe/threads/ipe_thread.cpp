// The registry of queues.
#include "ipe/threads/ipe_thread.h"

#include <atomic>
#include <memory>

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_lifecycle.h"

namespace {

using Guard = EPA_LockScope<EPA_Lock>;

std::atomic<IPE_Thread*> registry{nullptr};

// It stands before every component without a name, so those may enqueue until they stop.
EPA_Component component(
    [](bool up, const char*, void*) {
        if (up)
            IPE_Thread::create();
        else
            IPE_Thread::destroy();
    },
    "EPA_ThreadManager,IPE_Globals");

IPE_Object moduleQueue(const IPE_Arguments& arguments) {
    arguments.check("|so", "queue");
    IPE_Thread& thread = IPE_Thread::instance();
    return arguments.size() == 0 ? thread.figures() : thread.queue(arguments.text(0), arguments.at(1));
}

const IPE_NativeModule registered("ipe.thread", "queue", moduleQueue);

}  // namespace

IPE_Thread& IPE_Thread::instance() {
    IPE_Thread* current = find();
    XPK_Assert(current);
    return *current;
}

IPE_Thread* IPE_Thread::find() noexcept { return registry.load(std::memory_order_acquire); }

void IPE_Thread::create() {
    XPK_Assert(!find());
    registry.store(new IPE_Thread, std::memory_order_release);
}

void IPE_Thread::destroy() noexcept { delete registry.exchange(nullptr); }

IPE_Object IPE_Thread::findQueue(std::string_view name) {
    Guard guard(lock_);
    auto found = queues_.find(name);
    return found == queues_.end() ? IPE_Object() : found->second;
}

IPE_Object IPE_Thread::queue(std::string_view name, const IPE_Object& settings) {
    if (IPE_Object found = findQueue(name)) return found;
    if (!settings) XPK_Raise("RuntimeError", "Queue does not exist").raise();
    PyDict_SafeCast(settings);
    // Made outside the lock; of two threads that make the same one, the first to enter it wins.
    IPE_Object made = IPE_New<IPE_ThreadQueue>(name, settings);
    Guard guard(lock_);
    return queues_.try_emplace(std::string(name), made).first->second;
}

IPE_Object IPE_Thread::figures() {
    IPE_Object all = IPE_NewDict();
    Guard guard(lock_);
    for (const auto& [name, queue] : queues_) {
        const IPE_ThreadQueue::Figures figures = queue.as<IPE_ThreadQueue>()->figures();
        IPE_Object row = IPE_NewDict();
        IPE_Dict_Set(row, "priority", IPE_Int(figures.priority));
        IPE_Dict_Set(row, "threads", IPE_Int(figures.threads));
        IPE_Dict_Set(row, "waiting", IPE_Int(figures.waiting));
        IPE_Dict_Set(row, "entered", IPE_Int(figures.entered));
        IPE_Dict_Set(all, name, row);
    }
    return all;
}

void IPE_EnqueueJob(std::string_view queue, const IPE_Object& job) {
    IPE_Thread::instance().queue(queue).as<IPE_ThreadQueue>()->enqueue(job);
}

void IPE_EnqueueStrippedJob(std::string_view queue, IPE_Object job) {
    IPE_Thread::instance().queue(queue).as<IPE_ThreadQueue>()->enqueueStripped(std::move(job));
}
