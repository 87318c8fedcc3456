// The binary form of values: reading back what `save` writes, and whole object files.
//
// Tags are the token codes; they are stored data and never change:
//
//   6 string (32-bit count with the NUL, bytes)   7 int (8 bytes)   8 float (16-bit count, text)
//   9 None   10 True   11 False   0x67 a minus before a number
//   0x1E ... 0x1F tuple   0x20 ... 0x21 dict   0x22 ... 0x23 list   0x25 `:`   0x26 `,`   1 end
//
// A trailing comma before a closing tag is accepted. The reader stops exactly behind what it read, so values
// can follow one another in a source. A source that ends early raises IOError "stream eof"; a wrong tag or
// length IPESyntaxException "$decode\n$position"; nesting beyond 500 levels RuntimeError "Maximum stack depth
// exceded". Memory grows with the bytes that the source delivers, whatever lengths it claims.
#pragma once

#include <cstdint>

#include "ipe/object/ipe_type.h"
#include "runtime/epa_dataoutput.h"

enum class IPE_SavedTag : uint8_t {
    End = 1,
    String = 6,
    Int = 7,
    Float = 8,
    None = 9,
    True = 10,
    False = 11,
    TupleBegin = 0x1E,
    TupleEnd = 0x1F,
    DictBegin = 0x20,
    DictEnd = 0x21,
    ListBegin = 0x22,
    ListEnd = 0x23,
    Colon = 0x25,
    Comma = 0x26,
    Minus = 0x67,
};

// One value.
IPE_Object IPE_ReadSaved(EPA_DataInput& in);

// An object file: the bytes 49 42 46 1A, the integers 2 and 0, one value, the end tag. The reader raises
// AssertionError at the first wrong magic byte and does not compare the integers.
IPE_Object IPE_ReadObjectFile(EPA_DataInput& in);
void IPE_WriteObjectFile(EPA_DataOutput& out, const IPE_Object& value);
