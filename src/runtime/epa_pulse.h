// EPA_Pulse: one thread that calls registered functions on three slow timers.
//
// The component EPA_Pulse makes it; its thread ticks once a second from the release of the threads until
// shutdown. The "7 second" list runs on every 8th tick and the "31 second" list on every 32nd; the first tick
// runs all three.
#pragma once

#include "runtime/epa_lock.h"

using EPA_PulseFunction = void (*)();

class EPA_Pulse {
  public:
    static constexpr int ListLimit = 8;

    EPA_Pulse() = default;
    EPA_Pulse(const EPA_Pulse&) = delete;
    EPA_Pulse& operator=(const EPA_Pulse&) = delete;

    // Adds a function to the process's pulse, from any thread; its absence is an assertion, a ninth function
    // RuntimeError "Too many functions on the 1 second list" (7, 31). Functions run on the pulse thread with
    // fresh thread variables; what they raise is dropped. They must not block for long.
    static void addOneSecond(EPA_PulseFunction function);
    static void addSevenSecond(EPA_PulseFunction function);
    static void addThirtyOneSecond(EPA_PulseFunction function);

    enum List { OneSecond, SevenSecond, ThirtyOneSecond };
    void add(List list, EPA_PulseFunction function);
    // Runs the lists that are due, on a thread with a passport, and steps the counters.
    void tick();
    // Ticks once a second while the process runs.
    void run();

  private:
    void runList(List list) EPA_REQUIRES(lock_);

    EPA_RecursiveLock lock_;
    int seven_ EPA_GUARDED_BY(lock_) = 0;
    int thirtyone_ EPA_GUARDED_BY(lock_) = 0;
    EPA_PulseFunction lists_[3][ListLimit] EPA_GUARDED_BY(lock_) = {};
};
