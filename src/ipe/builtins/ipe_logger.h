// The log: records that native code and scripts add, handed to the script queue `logger` once a second.
//
//   IPE_Log("dev", 40, "Block buffer is full");
//
// A record is a dictionary with `name` (the channel), `levelno`, `pathname`, `lineno`, `excinfo`, `msg` and
// `args`. Any thread may log; a caller waits for no disk and no peer. Records that no queue takes go to the
// debug stream, and so do those that are left when the process ends, with those of a job that the end cut
// short. Of more than IPE_LogLimit records in one second the rest is dropped and counted in a record of its
// own.
//
// Scripts reach the same log as `ipe.logger.get()`, an object with one method, `addrecord(record)`.
#pragma once

#include <string_view>

#include "ipe/object/ipe_moduletype.h"
#include "runtime/epa_lock.h"
#include "runtime/xpk_exception.h"

// The queue that takes the records: one job a second, a dictionary with the list of records under
// `logevents`.
inline constexpr std::string_view IPE_LogQueueName = "logger";
inline constexpr int IPE_LogLimit = 500'000;

// Stores the place of the next record in the thread's state; true when logging is wanted, which it is from
// the start of the logger's component to its stop.
bool IPE_SetLogContext(std::string_view channel, int level, std::string_view path, int line);
// Adds a record at the place that was stored. `arguments` is a tuple, or null for none.
void IPE_LogMessage(std::string_view message, const IPE_Object& arguments = {});
// Both at once. Never raises: a record that memory is lacking for is dropped.
void IPE_Log(std::string_view channel, int level, std::string_view message,
             XPK_Place where = XPK_Place::current()) noexcept;
// Writes the records of a job of the queue to the debug stream.
void IPE_WriteOutLogJob(const IPE_Object& job);

// The process's collector of records, as a script object that all threads share. Lock order: the logger's
// lock, the registry of queues, a queue.
class IPE_Logger final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    IPE_Logger();
    // The process's logger, or null before its component started and after it stopped.
    static IPE_Object find() noexcept;
    // What the component does on its two calls, but for the pulse; stop() writes what is left to the debug
    // stream.
    static void start();
    static void stop() noexcept;

    // Takes a private copy. RuntimeError "addrecord recieved a null argument!".
    void add(const IPE_Object& record);
    // Hands what is pending to the queue, or to the debug stream if no queue takes it.
    void pulse();

    void __bind__() override {}  // bound when made, for all threads
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    IPE_Object __copy__() override { return IPE_Object(this); }
    void __setattr__(const IPE_Object& key, const IPE_Object& value) override {
        IPE_Type::__setattr__(key, value);
    }
    void __delattr__(const IPE_Object& key) override { IPE_Type::__delattr__(key); }
    void __setname__(const IPE_Object& name) override { IPE_Type::__setname__(name); }

  private:
    void append(IPE_Object record) EPA_REQUIRES(lock_);
    IPE_Object takePending() EPA_REQUIRES(lock_);

    EPA_Lock lock_;
    IPE_Object pending_ EPA_GUARDED_BY(lock_);  // list, null while nothing is pending
    int64_t dropped_ EPA_GUARDED_BY(lock_) = 0;
};
