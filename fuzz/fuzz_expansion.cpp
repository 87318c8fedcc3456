// The format and the dollar templates over a fixed set of parameters.
#include "fuzz_target.h"
#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_literal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    fuzzRun([&] {
        static const IPE_Object parameters[] = {parse_literal("{'a': 1, 'b': 'two', '0': 3.5, 'n': None}"),
                                                parse_literal("[1, 'x<y>&', -7, 2.5, [1], 'z']"),
                                                parse_literal("-9223372036854775807"),
                                                parse_literal("'plain'")};
        IPE_Object text = IPE_String(fuzzText(data + 1, size - 1));
        if (data[0] & 4)
            IPE_ExpandDollar(text, parameters[0], data[0] & 8);
        else
            IPE_ExpandFormat(text, parameters[data[0] & 3]);
    });
    return 0;
}
