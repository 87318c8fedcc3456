#pragma once

// Security identifiers in their text form "S-1-<authority>-<sub>..." ([MS-DTYP] 2.4.2.1), and their SDDL
// aliases.
//
// Linux users are S-1-22-1-<uid> and groups S-1-22-2-<gid>, the convention of Samba. Aliases of two letters
// exist for the well-known identifiers that are the same on every machine; those relative to a domain or
// machine (such as "DA") have no identifier here.

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

inline constexpr char kSidEveryone[] = "S-1-1-0";
inline constexpr char kSidCreatorOwner[] = "S-1-3-0";
inline constexpr char kSidCreatorGroup[] = "S-1-3-1";

std::string sidOfUser(uint32_t uid);
std::string sidOfGroup(uint32_t gid);
bool userOfSid(std::string_view sid, uint32_t& uid);
bool groupOfSid(std::string_view sid, uint32_t& gid);

// Length of the identifier that `text` begins with, 0 if there is none: revision 1, an authority of 48 bits
// in decimal or as 0x and hexadecimal digits, 1 to 15 sub-authorities of 32 bits in decimal.
size_t sidLength(std::string_view text);

// Alias to identifier, in either case of letters; false if unknown. And back: null if it has none.
bool sidOfAlias(std::string_view alias, std::string& sid);
const char* aliasOfSid(std::string_view sid);

// Identifier of an alias or an identifier as it stands; false if the text is neither.
bool sidOfTrustee(std::string_view trustee, std::string& sid);

}  // namespace platform
