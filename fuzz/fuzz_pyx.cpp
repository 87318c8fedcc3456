// The PYX parser: the first byte chooses strictness, the rest is the document. Every token is of a known
// form, tags of a strict document pair up, and a document gives no more tokens than it has bytes.
#include <cstdlib>
#include <vector>

#include "fuzz_target.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/xml/ipe_pyxparser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    fuzzRun([&] {
        bool strict = data[0] & 1;
        IPE_Object tokens = IPE_PyxTokens(fuzzText(data + 1, size - 1), strict);
        std::vector<std::string_view> open;
        for (const IPE_Object& token : tokens.as<IPE_ListType>()->items()) {
            std::string_view text = token.as<IPE_StringType>()->view();
            if (text.empty() || std::string_view("()A-?").find(text[0]) == std::string_view::npos) abort();
            if (text[0] == '(') open.push_back(text);
            if (text[0] != ')' || !strict) continue;
            if (open.empty() || open.back().substr(1) != text.substr(1)) abort();
            open.pop_back();
        }
        if (strict && !open.empty()) abort();
        if (static_cast<size_t>(tokens->__len__()) >= size) abort();
    });
    return 0;
}
