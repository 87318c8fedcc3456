// Many signed numbers of variable length, written.
#pragma once

#include <algorithm>
#include <span>

#include "store/codecs/smf_varint.h"
#include "store/smf_encoderstream.h"

template <class Number>
void SMF_PutSignedRun(std::span<const Number> values, SMF_EncoderStream& out) {
    constexpr size_t Piece = 64;
    while (!values.empty()) {
        auto piece = values.first(std::min(values.size(), Piece));
        if (uint8_t* room = out.reserve(piece.size() * SMF_LongestNumber)) [[likely]] {
            uint8_t* at = room;
            for (Number value : piece) at += SMF_PutSigned(value, at);
            out.advance(static_cast<size_t>(at - room));
        } else {
            uint8_t bytes[SMF_LongestNumber];
            for (Number value : piece) out.write(bytes, SMF_PutSigned(value, bytes));
        }
        values = values.subspan(piece.size());
    }
}
