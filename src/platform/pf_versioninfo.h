#pragma once

// Version texts that a program file carries.

#include <map>
#include <string>

namespace platform {

using VersionStrings = std::map<std::string, std::string>;  // UTF-8 both

// Fills `strings` with
//   - the string table of the version resource of a PE file (the first one; Microsoft's PE format,
//   VS_VERSIONINFO), or
//   - the members of the package note of an ELF file (`.note.package`, type 0xCAFE1A7E, a JSON object; the
//   UAPI
//     group's package metadata), texts as they are and other scalars by their spelling.
// A file of another kind, without such data or with damaged data gives an empty map and 0; an errno tells
// that the file could not be read (EISDIR for a folder, EOPNOTSUPP for pipes and the like). Reads only the
// parts it needs: resources up to 1 MiB, notes up to 64 KiB.
int readVersionStrings(const std::string& path, VersionStrings& strings);

}  // namespace platform
