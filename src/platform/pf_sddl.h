#pragma once

// Security descriptors as text: "O:<owner>G:<group>D:<flags>(<entry>)...S:<flags>(<entry>)..."
// ([MS-DTYP] 2.5.1).

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

struct SddlEntry {
    std::string type;    // "A", "D", "AU", ...
    std::string flags;   // pairs of letters
    std::string rights;  // pairs of letters or a number
    std::string object;  // GUID texts, mostly empty
    std::string inheritObject;
    std::string trustee;  // identifier, aliases resolved
};

struct SddlList {
    std::string flags;  // "P", "AI", ... as it stands
    std::vector<SddlEntry> entries;
};

struct Sddl {
    std::optional<std::string> owner;  // identifiers, aliases resolved
    std::optional<std::string> group;
    std::optional<SddlList> dacl;
    std::optional<SddlList> sacl;
};

// Parses a descriptor. EINVAL for anything malformed: unknown or repeated sections, unknown aliases, entries
// without exactly six fields (so conditional entries too), more than 65,535 bytes of text. Time and memory
// are linear.
int parseSddl(std::string_view text, Sddl& sddl);

// The access mask of a rights field: a number (0x, octal with 0, or decimal) or a series of known letter
// pairs. False if it is neither.
bool sddlRights(std::string_view rights, uint32_t& mask);

}  // namespace platform
