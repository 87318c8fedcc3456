// Packed text: a compressed text as Base64, for literals and `repr`.
//
// The block is a byte 0, the length of the text as a 32-bit little-endian number, and a zlib stream (RFC
// 1950). Writers count the terminating NUL in length and stream; readers take blocks with it and without. A
// stored length above 1 GiB, a stream that gives more than its length, and damaged Base64 or stream data
// raise AssertionError. Memory grows with what the stream really gives, never by the stored length.
#pragma once

#include <string>
#include <string_view>

// The packed form (Base64, RFC 4648), with a leading `~` when `marked`.
std::string IPE_PackText(std::string_view text, bool marked = false);

// The text of a packed form, with or without its `~`, up to its first NUL.
std::string IPE_Unpack(std::string_view packed);

// The bytes of a block as it stands before Base64, all of them.
std::string IPE_UnpackBlock(std::string_view block);
