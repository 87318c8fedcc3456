// Whole small programs, run by the interpreter. A watch clears the running flag after a while, which is how a
// server ends a script that does not end by itself. Built-ins that reach outside the process are taken away.
#include <atomic>
#include <chrono>
#include <thread>

#include "fuzz_target.h"
#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_programloader.h"
#include "runtime/epa_shutdown.h"

namespace {

std::atomic<int64_t> deadline{INT64_MAX};

int64_t now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

void watch() {
    for (;;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        if (now() > deadline) epa_detail::running = false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool started = (std::thread(watch).detach(), true);
    (void)started;
    epa_detail::running = true;
    deadline = now() + 300'000'000;
    fuzzRun([&] {
        std::string text = "class fuzzed:\n";
        text.append(fuzzText(data, size));
        load_source_text("", text, "fuzz.py");
        IPE_Interpreter interpreter;
        for (const char* name : {"fs", "open", "messagebox", "sys_exit", "interpreter", "timeout", "hostos"})
            interpreter.builtins().dictionary().removeText(name);
        interpreter.run("fuzzed");
    });
    deadline = INT64_MAX;
    return 0;
}
