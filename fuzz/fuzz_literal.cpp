// Data literals in both modes; what the reader accepts must come back through the representation writer.
#include <cstdlib>

#include "fuzz_target.h"
#include "ipe/values/ipe_literal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool json = data[0] & 1;
    fuzzRun([&] {
        IPE_Object value = parse_literal(fuzzText(data + 1, size - 1), false, json);
        std::string text = IPE_Object_ToString(value);
        // Floats keep 17 decimals and the order of a dictionary is its history's; all else comes back equal.
        IPE_Object again = parse_literal(text);
        if (text.find('.') == std::string::npos && !IPE_Object_Equal(value, again)) abort();
    });
    return 0;
}
