// Regular expressions that look at nothing but the text behind the last full stop.
#pragma once

#include <string_view>

// True when whether and what `pattern` matches in a text with a full stop depends only on the text from the
// last one on: a full stop, characters among which is none, the end, as in `\.([^.]+)$`. Patterns in the
// syntax of PCRE without options. Careful: false when in doubt.
bool FSI_IsExtensionPattern(std::string_view pattern);
