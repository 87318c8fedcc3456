// Whole small programs, run by the interpreter. A watch clears the running flag after a while, which is how a
// server ends a script that does not end by itself. Built-ins that reach outside the process are taken away.
#include "fuzz_target.h"
#include "fuzz_watch.h"
#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_programloader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzWatch watch(300);
    fuzzRun([&] {
        std::string text = "class fuzzed:\n";
        text.append(fuzzText(data, size));
        load_source_text("", text, "fuzz.py");
        IPE_Interpreter interpreter;
        for (const char* name : {"fs", "open", "messagebox", "sys_exit", "interpreter", "timeout", "hostos"})
            interpreter.builtins().dictionary().removeText(name);
        interpreter.run("fuzzed");
    });
    return 0;
}
