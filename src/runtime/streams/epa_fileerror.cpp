// Names and failures of files.
//
// The listings of the file system give values of their own for names that are no text. The streams stand
// below those types, so a name that is no string goes through a converter that the upper floor registers. The
// pointer is set once, before threads exist, and only read afterwards.

#include "runtime/streams/epa_fileerror.h"

#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_paths.h"

namespace {
constinit EPA_FileNameConverter converter = nullptr;
}

void EPA_RaiseFileError(int error, std::string_view name, XPK_Place where) {
    EPA_RaiseFileError(error, XPK_DecodeError(error), name, where);
}

void EPA_RaiseFileError(int error, std::string_view decode, std::string_view name, XPK_Place where) {
    XPK_Raise("IOError", "[Errno $errno] $decode: '$name'", where)
        .number("errno", error)
        .string("decode", decode)
        .string("name", name)
        .fields("errno,decode")
        .raise();
}

EPA_FileName EPA_FileNameOf(const IPE_Object& value) {
    if (!value.is<IPE_StringType>() && converter) return converter(value);
    EPA_FileName name;
    name.text = PyString_SafeCast(value)->view();
    name.error = platform::textToBytes(name.text, name.bytes);
    return name;
}

void EPA_SetFileNameConverter(EPA_FileNameConverter function) { converter = function; }
