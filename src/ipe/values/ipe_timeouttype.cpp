// Sleeping on a semaphore that only shutdown ever releases.
#include "ipe/values/ipe_timeouttype.h"

#include "ipe/object/ipe_moduletype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_shutdownhandler.h"

const char IPE_TimeoutType::TypeName[] = "Timeout";

namespace {
constexpr int Sleep = 0;
constexpr int64_t Unregistered = 2000;  // milliseconds
}  // namespace

void IPE_TimeoutType::sleep(int64_t milliseconds) {
    if (milliseconds > Unregistered)
        EPA_InterruptibleWait(semaphore_, milliseconds);
    else
        semaphore_.wait(milliseconds);
}

IPE_Object IPE_TimeoutType::__getattr__(const IPE_Object& key, int depth) {
    if (key && key->is_text("sleep")) return IPE_MethodOf(this, Sleep);
    return IPE_Type::__getattr__(key, depth);
}

IPE_Object IPE_TimeoutType::__callmethod__(int, const IPE_Arguments& arguments) {
    arguments.check("i", "sleep");
    sleep(arguments.integer(0));
    return IPE_None();
}

IPE_Object IPE_TimeoutType::__getname__() { return IPE_Object(IPE_StringType::intern(TypeName)); }
