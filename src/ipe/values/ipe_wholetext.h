// IPE_WholeText: strings out of engines whose texts are bytes.
#pragma once

#include <cstring>
#include <string_view>

#include "ipe/values/ipe_stringtype.h"

// The whole text, NULs kept, where IPE_String() ends at the first. Comparing, hashing, slicing and adding see
// all of it; what hands the text to the system ends at the NUL.
inline IPE_Object IPE_WholeText(std::string_view text) {
    if (text.find('\0') == std::string_view::npos) return IPE_String(text);
    IPE_Object result = IPE_StringType::makeUninitialised(text.size());
    memcpy(result.as<IPE_StringType>()->data(), text.data(), text.size());
    return result;
}
