// Source text to registered modules, and back through the stored form.
#include "fuzz_target.h"
#include "ipe/language/ipe_programloader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzRun([&] {
        for (const std::string& path : load_source_text("", fuzzText(data, size), "fuzz.py")) {
            IPE_Object node = IPE_ModuleRegistry::lookup(path);
            if (auto* source = node.tryAs<IPE_ModuleSource>()) {
                IPE_Program program;
                program.append(IPE_StoredTokens::fromList(source->stored().toList()), "fuzz.py");
                for (uint32_t line = 0; line < program.lineCount(); ++line) program.getLineTokens(line);
            }
        }
    });
    return 0;
}
