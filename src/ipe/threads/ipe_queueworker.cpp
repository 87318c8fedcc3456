// Workers.
//
// Two copies of a job exist while it runs: the queued one, which is shared and never changed, so that other
// threads may look at it through the thread variable, and the worker's own, which is plain local data for the
// script to change.
//
// An import that fails leaves half a module behind. The interpreter is thrown away with it and the next job
// begins with a new one, so that failing over and over again costs no memory.
#include "ipe/threads/ipe_queueworker.h"

#include "ipe/builtins/ipe_logger.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_store.h"
#include "platform/pf_console.h"
#include "platform/pf_process.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_threadmanager.h"

namespace {

// A worker frees what others have allocated: beyond this much it gives the blocks back to the pools.
constexpr int64_t KeptBytes = 1 << 20;

IPE_StringType* const jobName = IPE_StringType::intern("job");

// The thread variable `job` for a scope.
class JobScope {
  public:
    JobScope(const IPE_Object& own, const IPE_Object& queued) : store_(IPE_ThreadStore()) {
        store_.lend(IPE_Object(jobName), own, queued);
    }
    ~JobScope() { store_.endLoan(); }
    JobScope(const JobScope&) = delete;
    JobScope& operator=(const JobScope&) = delete;

  private:
    IPE_Store& store_;
};

}  // namespace

void IPE_QueueWorker::start(IPE_ThreadQueue& queue) {
    EPA_ThreadManager& manager = EPA_ThreadManager::instance();
    IPE_Object held(&queue);  // the worker's own reference, handed over by a successful start
    manager.start(body, &queue);
    held.detach();
}

void IPE_QueueWorker::body(EPA_ThreadPassportImpl& passport) {
    IPE_Object held = IPE_Object::adopt(static_cast<IPE_ThreadQueue*>(passport.argument()));
    IPE_ThreadQueue& queue = *held.as<IPE_ThreadQueue>();
    bool failed = true;
    try {
        passport.announce("ipe_%i");
        IPE_QueueWorker worker(queue, passport);
        worker.run();
        failed = false;
    } catch (const XPK_Exception& error) {
        platform::debugOutput("A worker of the queue " + queue.name() + " ends: " + error.message());
    } catch (const std::exception& error) {
        platform::debugOutput("A worker of the queue " + queue.name() + " ends: " + error.what());
    } catch (...) {
        platform::debugOutput("A worker of the queue " + queue.name() + " ends by an unknown exception");
    }
    queue.workerEnded(failed);
}

void IPE_QueueWorker::run() {
    const XPK_ThreadState& state = *XPK_CurrentThread();
    while (XPK_IsRunning()) {
        if (passport_.isBlocked()) passport_.clearHandler();
        IPE_Object job = queue_.take();
        if (!job || job.is<ThreadQueueShutdownThread>()) return;
        applyPriority();
        runJob(job);
        job = nullptr;
        if (state.pools.cachedBytes > KeptBytes) XPK_FlushThreadCaches();
    }
}

void IPE_QueueWorker::applyPriority() {
    const int priority = queue_.priority();
    if (priority == applied_) return;
    applied_ = priority;
    // A refusal, which an ordinary user gets for the higher ones, leaves the thread as it is.
    (void)platform::setThreadPriority(priority);
}

void IPE_QueueWorker::runJob(const IPE_Object& job) {
    try {
        callJob(job);
        return;
    } catch (const XPK_Exception& exception) {
        if (XPK_IsRunning() || exception.type() != "SystemExit") reportException(exception);
    } catch (const std::exception& error) {
        report(__FILE__, __LINE__, error.what());
    } catch (...) {
        report(__FILE__, __LINE__, "Unknown exception");
    }
    if (!XPK_IsRunning() && queue_.name() == IPE_LogQueueName) saveRecords(job);
}

// The end of the process has cut the writing of these records short: some may be told twice, none is lost.
void IPE_QueueWorker::saveRecords(const IPE_Object& job) noexcept {
    try {
        IPE_WriteOutLogJob(job);
    } catch (...) {
        // There is no memory left to tell them with.
    }
}

void IPE_QueueWorker::callJob(const IPE_Object& job) {
    if (!interpreter_) {
        interpreter_ = std::make_unique<IPE_Interpreter>();
        interpreter_->root().dictionary().setText("__module__", IPE_String(queue_.module()));
        interpreter_->root().dictionary().setText("__builtins__", interpreter_->builtinsObject());
    }
    IPE_Object arguments[2] = {IPE_Object_Copy(job)};
    JobScope scope(arguments[0], job);
    int count = 1;
    if (queue_.jobSettings()) arguments[count++] = IPE_Object_Copy(queue_.jobSettings());
    IPE_Object space;
    try {
        IPE_Frame frame(*interpreter_, IPE_Frame::Root);
        IPE_FrameScope frames(frame);
        space = moduleSpace(frame);
    } catch (...) {
        interpreter_.reset();
        throw;
    }
    IPE_Frame frame(*interpreter_, IPE_Frame::Root);
    IPE_FrameScope frames(frame);
    IPE_Object function(space.as<IPE_ModuleShared>()->dictionary().findName(jobName));
    if (!function) XPK_Raise("AttributeError", "$key").string("key", jobName->view()).raise();
    IPE_CallScript(function, IPE_Arguments(arguments, count));
}

IPE_Object IPE_QueueWorker::moduleSpace(IPE_Frame& frame) {
    if (IPE_Type* space = interpreter_->loaded().dictionary().findText(queue_.module()))
        return IPE_Object(space);
    return interpreter_->importModule(frame, queue_.module(), true);
}

void IPE_QueueWorker::report(std::string_view file, int line, const std::string& text) noexcept {
    try {
        std::string message = "Queue " + queue_.name() + ": " + text;
        if (queue_.name() == IPE_LogQueueName)
            platform::debugOutput(message);
        else if (IPE_SetLogContext("dev", 40, file, line))
            IPE_LogMessage(message);
    } catch (...) {
        // There is no memory left to tell it with.
    }
}

// The message, and the statement it came from.
void IPE_QueueWorker::reportException(const XPK_Exception& exception) noexcept {
    try {
        std::string text = exception.type() + ": " + exception.message(), file = __FILE__;
        int line = __LINE__;
        const IPE_Object& details = exception.details();
        if (details) {
            std::string statement = IPE_Dict_GetString(details, "statement", "");
            file = IPE_Dict_GetString(details, "file", file);
            line = IPE_Dict_GetInt32(details, "line", line);
            if (!statement.empty()) text += "\n" + statement;
        }
        report(file, line, text);
    } catch (...) {
        report(__FILE__, __LINE__, "An exception whose details cannot be read");
    }
}
