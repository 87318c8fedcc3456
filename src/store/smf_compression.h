// Compression of single blocks: zlib streams (RFC 1950) and LZ4 blocks (the block format, without a frame).
// Any thread; each has work memory of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Compresses `size` bytes into `out` from `at` on, and gives the number of bytes made. The vector grows as it
// must and keeps its size. `zlib` selects the method.
size_t SMF_Compress(bool zlib, const uint8_t* bytes, size_t size, std::vector<uint8_t>& out, size_t at);
// Decompresses into `out`; the number of bytes made, or -1 when the input is damaged or makes more than
// `capacity`. What stands in `out` behind a failure is unspecified.
int64_t SMF_Decompress(bool zlib, const uint8_t* bytes, size_t size, uint8_t* out, size_t capacity);
// The most bytes that `size` compressed bytes can make.
size_t SMF_MostDecompressed(bool zlib, size_t size);
