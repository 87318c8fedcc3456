// Block compression through libdeflate and liblz4.
#include "store/smf_compression.h"

#include <libdeflate.h>
#include <lz4.h>

#include <limits>
#include <memory>

#include "runtime/xpk_exception.h"

namespace {

constexpr int ZlibLevel = 7;         // beyond it the time grows much faster than the size falls
constexpr int Lz4Acceleration = 14;  // the format's own choice

struct FreeCompressor {
    void operator()(libdeflate_compressor* value) const { libdeflate_free_compressor(value); }
};
struct FreeDecompressor {
    void operator()(libdeflate_decompressor* value) const { libdeflate_free_decompressor(value); }
};

libdeflate_compressor* compressor() {
    thread_local std::unique_ptr<libdeflate_compressor, FreeCompressor> own;
    if (!own) own.reset(libdeflate_alloc_compressor(ZlibLevel));
    if (!own) throw XPK_MemoryException(__FILE__, __LINE__);
    return own.get();
}

libdeflate_decompressor* decompressor() {
    thread_local std::unique_ptr<libdeflate_decompressor, FreeDecompressor> own;
    if (!own) own.reset(libdeflate_alloc_decompressor());
    if (!own) throw XPK_MemoryException(__FILE__, __LINE__);
    return own.get();
}

}  // namespace

size_t SMF_Compress(bool zlib, const uint8_t* bytes, size_t size, std::vector<uint8_t>& out, size_t at) {
    size_t bound = zlib ? libdeflate_zlib_compress_bound(compressor(), size)
                        : static_cast<size_t>(LZ4_compressBound(static_cast<int>(size)));
    if (out.size() < at + bound) out.resize(at + bound);
    size_t made = zlib ? libdeflate_zlib_compress(compressor(), bytes, size, out.data() + at, bound)
                       : static_cast<size_t>(LZ4_compress_fast(
                             reinterpret_cast<const char*>(bytes), reinterpret_cast<char*>(out.data() + at),
                             static_cast<int>(size), static_cast<int>(bound), Lz4Acceleration));
    XPK_Assert(made > 0);
    return made;
}

int64_t SMF_Decompress(bool zlib, const uint8_t* bytes, size_t size, uint8_t* out, size_t capacity) {
    if (zlib) {
        size_t made = 0;
        auto result = libdeflate_zlib_decompress(decompressor(), bytes, size, out, capacity, &made);
        return result == LIBDEFLATE_SUCCESS ? static_cast<int64_t>(made) : -1;
    }
    if (size > std::numeric_limits<int>::max() || capacity > std::numeric_limits<int>::max()) return -1;
    int made = LZ4_decompress_safe(reinterpret_cast<const char*>(bytes), reinterpret_cast<char*>(out),
                                   static_cast<int>(size), static_cast<int>(capacity));
    return made < 0 ? -1 : made;
}

size_t SMF_MostDecompressed(bool zlib, size_t size) { return size * (zlib ? 1032 : 255) + 64; }
