// Numbers of variable length, read.
//
// The wide reader takes 32 bytes at a time: one instruction gathers their high bits, so the set of last bytes
// is known at once, and the numbers that end within the 32 bytes are cut out by their ends without a branch
// per byte. The gathering of 7-bit groups is one instruction (pext) where the processor has it.
#include "store/codecs/smf_varint.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

uint64_t SMF_GetUnsigned(SMF_ByteCursor& in) {
    uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
        uint8_t byte = in.readByte();
        if (shift < 64) value |= uint64_t{byte & 0x7Fu} << shift;
        if (byte < 0x80) return value;
    }
}

int64_t SMF_GetSigned(SMF_ByteCursor& in) {
    uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
        uint8_t byte = in.readByte();
        bool last = byte < 0x80;
        if (shift < 64) value |= uint64_t{byte & (last ? 0x3Fu : 0x7Fu)} << shift;
        if (last) return static_cast<int64_t>(byte & 0x40 ? 0 - value : value);
    }
}

namespace {

template <class Number>
void scalarRun(SMF_ByteCursor& in, Number* out, uint32_t count, uint32_t& done) {
    for (; done < count; ++done) out[done] = static_cast<Number>(SMF_GetSigned(in));
}

#if defined(__x86_64__)
// A number of at most 8 bytes: `word` holds it from its first byte on, `bytes` is its length.
__attribute__((target("avx2,bmi,bmi2"))) inline int64_t cut(uint64_t word, unsigned bytes) {
    uint64_t bits = _pext_u64(word, 0x7F7F7F7F7F7F7F7Full);
    unsigned sign = 7 * bytes - 1;
    uint64_t magnitude = _bzhi_u64(bits, sign);
    uint64_t negative = 0 - (bits >> sign & 1);
    return static_cast<int64_t>((magnitude ^ negative) - negative);
}

template <class Number>
__attribute__((target("avx2,bmi,bmi2"))) void wideRun(SMF_ByteCursor& in, Number* out, uint32_t count,
                                                      uint32_t& done) {
    constexpr unsigned Step = 32;
    while (done < count) {
        const uint8_t* at = in.cursor();
        const uint8_t* limit = in.limit();
        uint32_t n = done;
        while (limit - at >= Step && n < count) {
            uint32_t more = static_cast<uint32_t>(
                _mm256_movemask_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(at))));
            uint32_t ends = ~more;
            unsigned start = 0;
            while (ends && n < count) {
                unsigned end = _tzcnt_u32(ends);
                unsigned bytes = end + 1 - start;
                if (bytes > 8) [[unlikely]]
                    break;
                uint64_t word;
                std::memcpy(&word, at + start, 8);
                out[n++] = static_cast<Number>(cut(word, bytes));
                start = end + 1;
                ends = _blsr_u32(ends);
            }
            at += start;
            if (start == 0) break;  // a long number: byte by byte
        }
        in.advanceTo(at);
        done = n;
        if (n < count) {
            out[n] = static_cast<Number>(SMF_GetSigned(in));
            done = n + 1;
        }
    }
}

bool haveWide() {
    static const bool have = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2");
    return have;
}
#endif

}  // namespace

void SMF_GetSignedRunScalar(SMF_ByteCursor& in, int64_t* out, uint32_t count, uint32_t& done) {
    done = 0;
    scalarRun(in, out, count, done);
}

void SMF_GetSignedRun(SMF_ByteCursor& in, int64_t* out, uint32_t count, uint32_t& done) {
    done = 0;
#if defined(__x86_64__)
    if (haveWide()) return wideRun(in, out, count, done);
#endif
    scalarRun(in, out, count, done);
}

void SMF_GetSignedRun(SMF_ByteCursor& in, int32_t* out, uint32_t count, uint32_t& done) {
    done = 0;
#if defined(__x86_64__)
    if (haveWide()) return wideRun(in, out, count, done);
#endif
    scalarRun(in, out, count, done);
}
