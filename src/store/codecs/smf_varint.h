// Numbers of variable length, as the paged schemes write them.
//
// Unsigned: groups of 7 bits, low group first, bit 7 set on every byte but the last. Signed: the magnitude in
// such groups, the last byte carrying 6 bits of it and the sign in bit 6. A number crosses pages and blocks
// like any other bytes.
#pragma once

#include <cstdint>

#include "store/smf_bytecursor.h"

inline constexpr uint32_t SMF_NumberPage = 32;  // bytes of a page of the number schemes
inline constexpr size_t SMF_LongestNumber = 10;
inline constexpr unsigned SMF_MostNumber = 4096;  // bytes that a reader follows a number

// Both give the number of bytes written to `out`, at most SMF_LongestNumber.
inline size_t SMF_PutUnsigned(uint64_t value, uint8_t* out) {
    size_t n = 0;
    while (value >= 0x80) {
        out[n++] = static_cast<uint8_t>(value | 0x80);
        value >>= 7;
    }
    out[n++] = static_cast<uint8_t>(value);
    return n;
}

// The lowest number has its magnitude too, in 64 bits without sign.
inline size_t SMF_PutSigned(int64_t value, uint8_t* out) {
    bool negative = value < 0;
    uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    size_t n = 0;
    while (magnitude > 0x3F) {
        out[n++] = static_cast<uint8_t>(magnitude | 0x80);
        magnitude >>= 7;
    }
    out[n++] = static_cast<uint8_t>(magnitude | (negative ? 0x40 : 0));
    return n;
}

// One number, byte by byte, across pages. Bits above the 64th are lost; a number longer than
// SMF_LongestNumber is read to its end, up to SMF_MostNumber bytes; beyond, SMF_ByteCursor::tooShort().
uint64_t SMF_GetUnsigned(SMF_ByteCursor& in);
int64_t SMF_GetSigned(SMF_ByteCursor& in);

// How many bytes a reader looks at together. All give the same numbers.
enum class SMF_Width { Scalar, Avx2, Avx512 };
// The widest that this processor has.
SMF_Width SMF_BestWidth() noexcept;

// Fills `out` with `count` signed numbers from `in`: wide steps while enough bytes are at hand, else byte by
// byte. `done` counts the numbers that are complete when it raises.
void SMF_GetSignedRun(SMF_ByteCursor& in, int64_t* out, uint32_t count, uint32_t& done,
                      SMF_Width width = SMF_BestWidth());
void SMF_GetSignedRun(SMF_ByteCursor& in, int32_t* out, uint32_t count, uint32_t& done,
                      SMF_Width width = SMF_BestWidth());
