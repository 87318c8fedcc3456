// Identifiers and aliases.
//
// The table holds the aliases of [MS-DTYP] 2.5.1.1 whose identifiers are fixed. Aliases relative to a domain
// or to the machine's own identifier are left out: a Linux host has neither.

#include "platform/pf_sid.h"

#include <charconv>
#include <cstring>

namespace platform {

namespace {

struct Alias {
    char alias[3];
    const char* sid;
};

constexpr Alias kAliases[] = {
    {"AA", "S-1-5-32-579"},
    {"AC", "S-1-15-2-1"},
    {"AN", "S-1-5-7"},
    {"AO", "S-1-5-32-548"},
    {"AS", "S-1-18-1"},
    {"AU", "S-1-5-11"},
    {"BA", "S-1-5-32-544"},
    {"BG", "S-1-5-32-546"},
    {"BO", "S-1-5-32-551"},
    {"BU", "S-1-5-32-545"},
    {"CD", "S-1-5-32-574"},
    {"CG", "S-1-3-1"},
    {"CO", "S-1-3-0"},
    {"CY", "S-1-5-32-569"},
    {"ED", "S-1-5-9"},
    {"ER", "S-1-5-32-573"},
    {"ES", "S-1-5-32-576"},
    {"HA", "S-1-5-32-578"},
    {"HI", "S-1-16-12288"},
    {"IS", "S-1-5-32-568"},
    {"IU", "S-1-5-4"},
    {"LS", "S-1-5-19"},
    {"LU", "S-1-5-32-559"},
    {"LW", "S-1-16-4096"},
    {"ME", "S-1-16-8192"},
    {"MP", "S-1-16-8448"},
    {"MS", "S-1-5-32-577"},
    {"MU", "S-1-5-32-558"},
    {"NO", "S-1-5-32-556"},
    {"NS", "S-1-5-20"},
    {"NU", "S-1-5-2"},
    {"OW", "S-1-3-4"},
    {"PO", "S-1-5-32-550"},
    {"PS", "S-1-5-10"},
    {"PU", "S-1-5-32-547"},
    {"RA", "S-1-5-32-575"},
    {"RC", "S-1-5-12"},
    {"RD", "S-1-5-32-555"},
    {"RE", "S-1-5-32-552"},
    {"RM", "S-1-5-32-580"},
    {"RU", "S-1-5-32-554"},
    {"SI", "S-1-16-16384"},
    {"SO", "S-1-5-32-549"},
    {"SS", "S-1-18-2"},
    {"SU", "S-1-5-6"},
    {"SY", "S-1-5-18"},
    {"UD", "S-1-5-84-0-0-0-0-0"},
    {"WD", kSidEveryone},
    {"WR", "S-1-5-33"},
};

constexpr std::string_view kUserPrefix = "S-1-22-1-";
constexpr std::string_view kGroupPrefix = "S-1-22-2-";

// Reads a number up to `limit` at `at` and advances; false if there is none or it is too large.
bool number(std::string_view text, size_t& at, int base, uint64_t limit) {
    uint64_t value = 0;
    auto [stop, error] = std::from_chars(text.data() + at, text.data() + text.size(), value, base);
    if (error != std::errc() || value > limit) return false;
    at = static_cast<size_t>(stop - text.data());
    return true;
}

bool idOfSid(std::string_view sid, std::string_view prefix, uint32_t& id) {
    if (sid.substr(0, prefix.size()) != prefix) return false;
    sid.remove_prefix(prefix.size());
    uint32_t value = 0;
    auto [stop, error] = std::from_chars(sid.data(), sid.data() + sid.size(), value);
    // The last number of the range means "unchanged" to the system calls.
    if (error != std::errc() || stop != sid.data() + sid.size() || value == UINT32_MAX) return false;
    id = value;
    return true;
}

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

}  // namespace

std::string sidOfUser(uint32_t uid) { return std::string(kUserPrefix) + std::to_string(uid); }

std::string sidOfGroup(uint32_t gid) { return std::string(kGroupPrefix) + std::to_string(gid); }

bool userOfSid(std::string_view sid, uint32_t& uid) { return idOfSid(sid, kUserPrefix, uid); }

bool groupOfSid(std::string_view sid, uint32_t& gid) { return idOfSid(sid, kGroupPrefix, gid); }

size_t sidLength(std::string_view text) {
    if (text.substr(0, 4) != "S-1-") return 0;
    size_t at = 4;
    bool hex = text.substr(at, 2) == "0x";
    if (hex) at += 2;
    if (!number(text, at, hex ? 16 : 10, 0xFFFFFFFFFFFF)) return 0;
    int subs = 0;
    while (at < text.size() && text[at] == '-') {
        ++at;
        if (++subs > 15 || !number(text, at, 10, UINT32_MAX)) return 0;
    }
    return subs ? at : 0;
}

bool sidOfAlias(std::string_view alias, std::string& sid) {
    if (alias.size() != 2) return false;
    for (const Alias& row : kAliases) {
        if (row.alias[0] != upper(alias[0]) || row.alias[1] != upper(alias[1])) continue;
        sid = row.sid;
        return true;
    }
    return false;
}

const char* aliasOfSid(std::string_view sid) {
    for (const Alias& row : kAliases) {
        if (sid == row.sid) return row.alias;
    }
    return nullptr;
}

bool sidOfTrustee(std::string_view trustee, std::string& sid) {
    if (sidOfAlias(trustee, sid)) return true;
    size_t length = sidLength(trustee);
    if (length == 0 || length != trustee.size()) return false;
    sid = trustee;
    return true;
}

}  // namespace platform
