// The literal reader: the safe inverse of the representation writer.
//
// It builds values from literals alone and never calls or looks up anything. Nesting is limited to 1,000
// levels.
#pragma once

#include <string_view>

#include "ipe/object/ipe_type.h"

class IPE_TokenSource;

// Reads the value that begins at the current token and moves past it; its faults are syntax errors of the
// source.
IPE_Object IPE_ReadLiteral(IPE_TokenSource& source);
// Reads one value. A text that begins with "~", or any text when `packed` is set, is unpacked first; a
// failure there is an assertion. `json` selects the JSON scanner. Anything but a literal raises
// IPESyntaxException "$decode\n$position".
IPE_Object parse_literal(std::string_view text, bool packed = false, bool json = false);
