// SDDL text as plain script structures.
#pragma once

#include <string_view>

#include "ipe/object/ipe_type.h"

// Appends one dict for each parenthesised entry of one section ("D:PAI(A;;FA;;;WD)...") to `list`, a
// ListType:
//   controls   text between the colon and the first entry
//   type       first field
//   flags      list of two-letter texts of the second field
//   rights     third field: [integer] when it begins with 0x, else list of two-letter texts
//   trustee    sixth field as a SID text, aliases resolved
// AssertionError for a text without a colon, with more than 63 bytes of control flags, with an entry that
// does not close, or with a rights number that is none. An unknown alias or malformed SID raises the platform
// error "ConvertStringSecurityDescriptorToSecurityDescriptor". Time and memory are linear in the text.
void IPE_DecodeSddl(std::string_view text, const IPE_Object& list);
