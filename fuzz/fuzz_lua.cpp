// A text as a Lua chunk in a new state, with its result taken out, put back, and called when it can be. A
// watch clears the running flag after a while; the state's hook then ends the chunk. Libraries that reach
// outside the process are taken away.
#include <atomic>
#include <chrono>
#include <thread>

#include "fuzz_target.h"
#include "ipe/engines/ipe_lua.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "runtime/epa_shutdown.h"

// Values that hold themselves are never collected.
extern "C" int __lsan_is_turned_off() { return 1; }

namespace {

std::atomic<int64_t> deadline{INT64_MAX};

int64_t now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

void watch() {
    for (;;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        if (now() > deadline) epa_detail::running = false;
    }
}

// Calls what it is given; gives its arguments and keywords back.
class Echo final : public IPE_Type {
  public:
    static constexpr const char* Name = "Echo";
    Echo() : IPE_Type(Name) {}
    IPE_Object __call__(const IPE_Arguments& arguments) override {
        if (arguments.size() > 1) arguments[0]->__call__(arguments.from(1));
        return IPE_TupleOf({arguments.tuple(), arguments.keywords()});
    }
};

constexpr const char* Prelude =
    "for name in ('execute remove rename tmpname getenv'):gmatch('%a+') do os[name] = nil end "
    "for name in ('io lfs luasql package require module dofile loadfile print'):gmatch('%a+') do _G[name] = "
    "nil end";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool started = (std::thread(watch).detach(), true);
    (void)started;
    epa_detail::running = true;
    deadline = INT64_MAX;
    fuzzRun([&] {
        IPE_Object object = IPE_NewLua();
        IPE_Lua& lua = *IPE_LuaOf(object);
        lua.execute(Prelude);
        lua.setGlobal("echo", IPE_New<Echo>());
        lua.setGlobal("state", object);
        deadline = now() + 200'000'000;
        IPE_Object result = lua.execute(fuzzText(data, size));
        lua.setGlobal("back", result);
        lua.getGlobal("back");
        if (result.is<IPE_LuaFunction>()) result->__call__(IPE_Arguments(&result, 1));
    });
    deadline = INT64_MAX;
    return 0;
}
