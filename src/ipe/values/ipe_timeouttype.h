// IPE_TimeoutType: an object with which a script sleeps without holding up shutdown.
//
// Its one attribute is the method `sleep`, spec "i": milliseconds. More than 2000 are slept under a shutdown
// handler, and shutdown ends them early; shorter sleeps run their time. One thread at a time.
#pragma once

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"
#include "runtime/epa_semaphore.h"

class IPE_TimeoutType final : public IPE_Type {
  public:
    static const char TypeName[];
    IPE_TimeoutType() : IPE_Type(TypeName), semaphore_(0, 1000) {}

    // Zero and negative times return at once. DevelopmentError "Thread passport is not available." for a long
    // sleep on a thread without a passport.
    void sleep(int64_t milliseconds);

    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    IPE_Object __getname__() override;

  private:
    EPA_Semaphore semaphore_;
};
