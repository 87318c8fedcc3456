// IPE_QueueWorker: a script thread that serves one queue, from its start to the last job it takes.
//
// It has an interpreter of its own, which imports the queue's module at the first job and keeps it: the
// module's top level runs once in each worker. Each job gets a fresh root frame and a call of the module's
// function `job` with the job, and with the queue's `settings` where it has some. While the function runs the
// thread variable `job` is that very dictionary; other threads see it as it was queued. An error in a job is
// logged (channel "dev", level 40) and the worker goes on; errors of the queue "logger" go to the debug
// stream.
#pragma once

#include <memory>

#include "ipe/language/ipe_interpreter.h"
#include "ipe/threads/ipe_threadqueue.h"

class IPE_QueueWorker {
  public:
    // Starts a worker, which waits at its gate until the threads are released. An assertion when there is no
    // thread manager yet; ApplicationError "Too many threads".
    static void start(IPE_ThreadQueue& queue);

  private:
    IPE_QueueWorker(IPE_ThreadQueue& queue, EPA_ThreadPassportImpl& passport)
        : queue_(queue), passport_(passport) {}
    static void body(EPA_ThreadPassportImpl& passport);
    void run();
    void applyPriority();
    void runJob(const IPE_Object& job);
    void callJob(const IPE_Object& job);
    static void saveRecords(const IPE_Object& job) noexcept;
    IPE_Object moduleSpace(IPE_Frame& frame);
    void report(std::string_view file, int line, const std::string& text) noexcept;
    void reportException(const XPK_Exception& exception) noexcept;

    static constexpr int NoPriority = 100;
    IPE_ThreadQueue& queue_;
    EPA_ThreadPassportImpl& passport_;
    std::unique_ptr<IPE_Interpreter> interpreter_;
    int applied_ = NoPriority;  // unknown at first: a thread begins with the priority of its starter
};
