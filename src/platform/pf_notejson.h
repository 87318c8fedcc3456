#pragma once

// The JSON object of a package note.

#include <map>
#include <string>
#include <string_view>

namespace platform {

// Adds the members of a JSON object (RFC 8259) to `members`: texts unescaped, numbers and literals by their
// spelling; members that are objects or lists are passed over. False and nothing added if the text is
// malformed or nests deeper than 32.
bool parseNoteJson(std::string_view text, std::map<std::string, std::string>& members);

}  // namespace platform
