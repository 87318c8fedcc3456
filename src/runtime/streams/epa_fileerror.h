// File names and file failures, as the streams and the file objects of scripts share them.
#pragma once

#include <string>
#include <string_view>

#include "runtime/ipe_object.h"
#include "runtime/xpk_exception.h"

// Raises IOError "[Errno $errno] $decode: '$name'" with the fields errno and decode listed. Without `decode`
// the text is the C library's for the number.
[[noreturn]] void EPA_RaiseFileError(int error, std::string_view name,
                                     XPK_Place where = XPK_Place::current());
[[noreturn]] void EPA_RaiseFileError(int error, std::string_view decode, std::string_view name,
                                     XPK_Place where = XPK_Place::current());

// A file name given by a script: `bytes` for the system, `text` for messages.
struct EPA_FileName {
    std::string bytes;
    std::string text;
    int error = 0;  // not 0: the name cannot be a path (EINVAL: a NUL inside, EILSEQ: not well-formed)
};

// Strings are taken here. Other forms of a path belong to a higher floor, which registers its converter at
// start; without one, or for a value that is no path, TypeError.
EPA_FileName EPA_FileNameOf(const IPE_Object& value);
using EPA_FileNameConverter = EPA_FileName (*)(const IPE_Object& value);
void EPA_SetFileNameConverter(EPA_FileNameConverter converter);
