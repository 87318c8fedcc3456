#pragma once

// The extended attribute `user.DOSATTRIB`, in which file servers keep the attribute bits that a POSIX mode
// cannot express. Two forms are in use, both written by Samba: a text "0x22", and a record in NDR (Samba's
// librpc/idl/xattr.idl): a terminated text, aligned to 2 a 16-bit version and the same again as union tag,
// aligned to 4 the words. Versions 1, 2 and 0xFFFF begin with the attribute word; versions 3, 4 and 5 have a
// word of valid flags (bit 0: attributes) before it. All numbers are little-endian.

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

inline constexpr char kDosAttribName[] = "user.DOSATTRIB";

// Reads the attribute word from the value of the extended attribute. False if there is none in it.
bool parseDosAttrib(std::string_view value, uint32_t& attributes);

// The value with its attribute word replaced: a record keeps its other fields, anything else becomes the text
// form.
std::string patchDosAttrib(std::string_view value, uint32_t attributes);

}  // namespace platform
