// A text as a Lua chunk in a new state, with its result taken out, put back, and called when it can be. A
// watch clears the running flag after a while; the state's hook then ends the chunk. Libraries that reach
// outside the process are taken away.
#include "fuzz_target.h"
#include "fuzz_watch.h"
#include "ipe/engines/ipe_lua.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"

// Values that hold themselves are never collected.
extern "C" int __lsan_is_turned_off() { return 1; }

namespace {

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzWatch watch(200);
    fuzzRun([&] {
        IPE_Object object = IPE_NewLua();
        IPE_Lua& lua = *IPE_LuaOf(object);
        lua.execute(FuzzLuaPrelude);
        lua.setGlobal("echo", IPE_New<Echo>());
        lua.setGlobal("state", object);
        IPE_Object result = lua.execute(fuzzText(data, size));
        lua.setGlobal("back", result);
        lua.getGlobal("back");
        if (result.is<IPE_LuaFunction>()) result->__call__(IPE_Arguments(&result, 1));
    });
    return 0;
}
