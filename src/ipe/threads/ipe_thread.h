// IPE_Thread: the process's registry of script queues, and the module `ipe.thread`.
//
// `ipe.thread.queue(name)` gives a queue, `ipe.thread.queue(name, settings)` makes it on first use, and
// `ipe.thread.queue()` gives a dictionary from each name to a dictionary with `priority`, `threads`,
// `waiting` and `entered`. Queues live until the component stops; there is no way to remove one. All
// operations may be called from any thread. The registry's lock is taken before a queue's.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "ipe/threads/ipe_threadqueue.h"

class IPE_Thread {
  public:
    // The one registry; its absence is an assertion.
    static IPE_Thread& instance();
    // The one registry, or null.
    static IPE_Thread* find() noexcept;
    // What the component does on its two calls. No worker runs any more when it goes down.
    static void create();
    static void destroy() noexcept;

    // The queue of that name. Missing, it is made when `settings` is a dictionary; without settings
    // RuntimeError "Queue does not exist".
    IPE_Object queue(std::string_view name, const IPE_Object& settings = {});
    // The queue or null.
    IPE_Object findQueue(std::string_view name);
    // A new dictionary with the figures of every queue.
    IPE_Object figures();

  private:
    EPA_Lock lock_;
    std::map<std::string, IPE_Object, std::less<>> queues_ EPA_GUARDED_BY(lock_);
};

// Enqueues a copy of the job by the queue's name, or a job that IPE_Object_Strip made. RuntimeError "Queue
// does not exist".
void IPE_EnqueueJob(std::string_view queue, const IPE_Object& job);
void IPE_EnqueueStrippedJob(std::string_view queue, IPE_Object job);
