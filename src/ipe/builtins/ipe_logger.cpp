// The log.
//
// Adding a record costs the copy of the record and an append under the lock; everything slow happens on the
// pulse's thread. The list goes to the queue as it is, without another copy, since nobody else holds it. The
// hand-over happens under the logger's lock, so that two threads cannot hand over in the wrong order; what no
// queue takes is written out behind the lock, because the debug stream may be slow.
#include "ipe/builtins/ipe_logger.h"

#include <atomic>

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/threads/ipe_thread.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "platform/pf_console.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/epa_pulse.h"
#include "runtime/xpk_threadstate.h"

const char IPE_Logger::TypeName[] = "LoggerType";

namespace {

using Guard = EPA_LockScope<EPA_Lock>;

// Guards the handle only; a logger in use is held by its user.
EPA_Lock processLock;
IPE_Object processLogger;
std::atomic<bool> wanted{false};

IPE_StringType* const eventsName = IPE_StringType::intern("logevents");
IPE_StringType* const nameKey = IPE_StringType::intern("name");
IPE_StringType* const levelKey = IPE_StringType::intern("levelno");
IPE_StringType* const pathKey = IPE_StringType::intern("pathname");
IPE_StringType* const lineKey = IPE_StringType::intern("lineno");
IPE_StringType* const excinfoKey = IPE_StringType::intern("excinfo");
IPE_StringType* const messageKey = IPE_StringType::intern("msg");
IPE_StringType* const argumentsKey = IPE_StringType::intern("args");

IPE_Object newRecord(std::string_view channel, int level, std::string_view path, int line,
                     std::string_view message, const IPE_Object& arguments) {
    IPE_Object record = IPE_NewDict();
    auto& dict = *record.as<IPE_DictType>();
    dict.setName(nameKey, IPE_String(channel));
    dict.setName(levelKey, IPE_Int(level));
    dict.setName(pathKey, IPE_String(path));
    dict.setName(lineKey, IPE_Int(line));
    dict.setName(excinfoKey, IPE_None());
    dict.setName(messageKey, IPE_String(message));
    dict.setName(argumentsKey, arguments ? arguments : IPE_NewTuple());
    return record;
}

std::string fieldText(IPE_DictType& record, IPE_StringType* key) {
    IPE_Type* value = record.findName(key);
    return value ? IPE_Object_Text(IPE_Object(value)) : "?";
}

void writeOut(const IPE_Object& record) {
    auto* dict = record.tryAs<IPE_DictType>();
    if (!dict) return platform::debugOutput(IPE_Object_Text(record));
    platform::debugOutput(fieldText(*dict, nameKey) + " " + fieldText(*dict, levelKey) + " " +
                          fieldText(*dict, pathKey) + "(" + fieldText(*dict, lineKey) +
                          "): " + fieldText(*dict, messageKey));
}

void writeOutAll(const IPE_Object& list) {
    if (auto* records = list.tryAs<IPE_ListType>())
        for (const IPE_Object& record : records->items()) writeOut(record);
}

// Jobs that no worker came to are records too.
void writeOutQueue() {
    IPE_Thread* threads = IPE_Thread::find();
    IPE_Object queue = threads ? threads->findQueue(IPE_LogQueueName) : IPE_Object();
    if (!queue) return;
    for (const IPE_Object& job : queue.as<IPE_ThreadQueue>()->drain()) IPE_WriteOutLogJob(job);
}

void pulse() {
    if (IPE_Object logger = IPE_Logger::find()) logger.as<IPE_Logger>()->pulse();
}

EPA_Component component([](bool up, const char*, void*) {
    if (!up) return IPE_Logger::stop();
    IPE_Logger::start();
    EPA_Pulse::addOneSecond(pulse);
});

IPE_Object moduleGet(const IPE_Arguments& arguments) {
    arguments.check("", "get");
    return IPE_Logger::find();
}

const IPE_NativeModule registered("ipe.logger", "get", moduleGet);

enum { MethodAddRecord };

}  // namespace

IPE_Logger::IPE_Logger() : IPE_ModuleType(TypeName) {
    bindMethods({{"addrecord", MethodAddRecord}});
    // Every thread reads the method from now on, so its count must be atomic.
    attributes_->markShared();
    for (uint32_t i = 0; i < attributes_->slots(); ++i)
        if (attributes_->keyAt(i)) attributes_->valueAt(i)->markShared();
    markShared();
}

IPE_Object IPE_Logger::find() noexcept {
    Guard guard(processLock);
    return processLogger;
}

void IPE_Logger::start() {
    IPE_Object logger = IPE_New<IPE_Logger>();
    Guard guard(processLock);
    processLogger.swap(logger);
    wanted = true;
}

void IPE_Logger::stop() noexcept {
    wanted = false;
    IPE_Object logger;
    {
        Guard guard(processLock);
        logger.swap(processLogger);
    }
    if (!logger) return;
    try {
        writeOutQueue();
        auto& self = *logger.as<IPE_Logger>();
        IPE_Object left;
        {
            Guard guard(self.lock_);
            left = self.takePending();
        }
        writeOutAll(left);
    } catch (...) {
        platform::debugOutput("The last log records could not be written");
    }
}

IPE_Object IPE_Logger::__callmethod__(int method, const IPE_Arguments& arguments) {
    if (method == MethodAddRecord) {
        arguments.check("o", "addrecord");
        add(arguments[0]);
    }
    return {};
}

void IPE_Logger::add(const IPE_Object& record) {
    IPE_Object copy;
    if (record) copy = IPE_Object_Strip(record);
    if (!copy) XPK_Raise("RuntimeError", "addrecord recieved a null argument!").raise();
    Guard guard(lock_);
    append(std::move(copy));
}

void IPE_Logger::append(IPE_Object record) {
    if (!pending_) {
        pending_ = IPE_NewList();
        pending_.counted()->markShared();
    }
    auto& list = *pending_.as<IPE_ListType>();
    if (list.count() >= IPE_LogLimit)
        ++dropped_;
    else
        list.append(std::move(record));
}

IPE_Object IPE_Logger::takePending() {
    IPE_Object list = std::move(pending_);
    if (dropped_ == 0) return list;
    IPE_Object record =
        newRecord("dev", 40, __FILE__, __LINE__, std::to_string(dropped_) + " log records were dropped", {});
    dropped_ = 0;
    list.as<IPE_ListType>()->append(IPE_Object_Strip(record));
    return list;
}

void IPE_Logger::pulse() {
    IPE_Object list;
    {
        Guard guard(lock_);
        list = takePending();
        if (!list) return;
        try {
            IPE_Object job = IPE_NewDict();
            job.as<IPE_DictType>()->setName(eventsName, list);
            job.counted()->markShared();
            IPE_EnqueueStrippedJob(IPE_LogQueueName, std::move(job));
            return;
        } catch (const XPK_Exception&) {
            // No such queue, or a full one.
        }
    }
    writeOutAll(list);
}

void IPE_WriteOutLogJob(const IPE_Object& job) {
    if (auto* dict = job.tryAs<IPE_DictType>()) writeOutAll(IPE_Object(dict->findName(eventsName)));
}

// --- Native code.

bool IPE_SetLogContext(std::string_view channel, int level, std::string_view path, int line) {
    XPK_ThreadState* state = XPK_CurrentThread();
    if (!state || !wanted.load(std::memory_order_relaxed)) return false;
    state->logChannel = channel;
    state->logLevel = level;
    state->logPath = path;
    state->logLine = line;
    return true;
}

void IPE_LogMessage(std::string_view message, const IPE_Object& arguments) {
    XPK_ThreadState* state = XPK_CurrentThread();
    IPE_Object logger = IPE_Logger::find();
    if (!state || !logger) return;
    logger.as<IPE_Logger>()->add(
        newRecord(state->logChannel, state->logLevel, state->logPath, state->logLine, message, arguments));
}

void IPE_Log(std::string_view channel, int level, std::string_view message, XPK_Place where) noexcept {
    try {
        if (IPE_SetLogContext(channel, level, where.file, where.line)) IPE_LogMessage(message);
    } catch (...) {
        // No memory for a record, and so none to tell of it.
    }
}
