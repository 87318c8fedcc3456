// Numbers of variable length, read.
//
// The wide readers take many bytes at a time: one instruction gathers their high bits, so the set of last
// bytes is known at once, and the numbers between them are cut out without a branch per byte. With AVX2 and
// BMI2 each number is one load and one gathering of its 7-bit groups (pext). With AVX-512 the ends are listed
// first and eight numbers are cut out together: a gather of eight words, and the 7-bit groups joined by two
// multiplications.
#include "store/codecs/smf_varint.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <algorithm>

namespace {
// A block table that names one block again and again could feed a number for days.
constexpr unsigned MostShift = 7 * SMF_MostNumber;
}  // namespace

uint64_t SMF_GetUnsigned(SMF_ByteCursor& in) {
    uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
        uint8_t byte = in.readByte();
        if (shift < 64) value |= uint64_t{byte & 0x7Fu} << shift;
        if (byte < 0x80) return value;
        if (shift > MostShift) in.tooShort();
    }
}

int64_t SMF_GetSigned(SMF_ByteCursor& in) {
    uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
        uint8_t byte = in.readByte();
        bool last = byte < 0x80;
        if (shift < 64) value |= uint64_t{byte & (last ? 0x3Fu : 0x7Fu)} << shift;
        if (last) return static_cast<int64_t>(byte & 0x40 ? 0 - value : value);
        if (shift > MostShift) in.tooShort();
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

#define SMF_AVX512 __attribute__((target("avx512f,avx512bw,avx512dq,avx512vl,avx512vbmi2,bmi,bmi2,popcnt")))

constexpr uint32_t MostEnds = 512;  // numbers listed before they are cut out

// Lists where numbers end, as offsets from `at`, until `count` are found or the bytes run short. Up to 63
// more than that may be written.
SMF_AVX512 uint32_t findEnds(const uint8_t* at, const uint8_t* limit, uint32_t count, uint32_t* ends) {
    alignas(64) static constexpr uint8_t Indices[64] = {
        0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21,
        22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43,
        44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63};
    const __m512i indices = _mm512_load_si512(Indices);
    uint32_t found = 0;
    for (uint32_t base = 0; limit - at >= 64 && found < count; at += 64, base += 64) {
        __mmask64 last = ~_mm512_movepi8_mask(_mm512_loadu_si512(at));
        __m512i places = _mm512_maskz_compress_epi8(last, indices);
        auto more = static_cast<uint32_t>(_mm_popcnt_u64(last));
        const __m512i offset = _mm512_set1_epi32(static_cast<int>(base));
        auto put = [&](uint32_t from, __m128i part) SMF_AVX512 {
            _mm512_storeu_si512(ends + found + from, _mm512_add_epi32(_mm512_cvtepu8_epi32(part), offset));
        };
        put(0, _mm512_castsi512_si128(places));
        if (more > 16) {
            put(16, _mm512_extracti32x4_epi32(places, 1));
            if (more > 32) {
                put(32, _mm512_extracti32x4_epi32(places, 2));
                put(48, _mm512_extracti32x4_epi32(places, 3));
            }
        }
        found += more;
    }
    return found;
}

// Eight numbers whose last bytes are at `ends`, the one before them ending at ends[-1]. False, with nothing
// done, when one is longer than 8 bytes.
SMF_AVX512 inline bool cutEight(const uint8_t* at, const uint32_t* ends, __m512i& numbers) {
    __m256i end = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(ends));
    __m256i before = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(ends - 1));
    __m256i bytes = _mm256_sub_epi32(end, before);
    if (_mm256_cmpgt_epu32_mask(bytes, _mm256_set1_epi32(8))) [[unlikely]]
        return false;
    __m512i words = _mm512_i32gather_epi64(_mm256_add_epi32(before, _mm256_set1_epi32(1)), at, 1);
    // The last byte to the top: its bit 6 is the sign, and bit 7 is clear.
    __m512i shift =
        _mm512_sub_epi64(_mm512_set1_epi64(64), _mm512_slli_epi64(_mm512_cvtepu32_epi64(bytes), 3));
    words = _mm512_sllv_epi64(words, shift);
    __mmask8 negative = _mm512_test_epi64_mask(words, _mm512_set1_epi64(int64_t{1} << 62));
    words = _mm512_and_si512(words, _mm512_set1_epi64(0x3F7F7F7F7F7F7F7F));
    words = _mm512_srlv_epi64(words, shift);
    // 7 bits each in 8, then 14 in 16, then 28 in 32, then 56.
    words = _mm512_maddubs_epi16(_mm512_set1_epi16(static_cast<int16_t>(0x8001)), words);
    words = _mm512_madd_epi16(words, _mm512_set1_epi32(0x40000001));
    __m512i high = _mm512_srli_epi64(_mm512_and_si512(words, _mm512_set1_epi64(int64_t{-1} << 32)), 4);
    words = _mm512_or_si512(_mm512_and_si512(words, _mm512_set1_epi64(0xFFFFFFFF)), high);
    numbers = _mm512_mask_sub_epi64(words, negative, _mm512_setzero_si512(), words);
    return true;
}

SMF_AVX512 inline void put(int64_t* out, __m512i numbers) { _mm512_storeu_si512(out, numbers); }
SMF_AVX512 inline void put(int32_t* out, __m512i numbers) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm512_cvtepi64_epi32(numbers));
}

template <class Number>
SMF_AVX512 void widestRun(SMF_ByteCursor& in, Number* out, uint32_t count, uint32_t& done) {
    uint32_t room[1 + MostEnds + 64];
    room[0] = UINT32_MAX;  // the number in front of the first ends one byte before it
    uint32_t* ends = room + 1;
    while (done < count) {
        const uint8_t* at = in.cursor();
        uint32_t wanted = std::min(count - done, MostEnds);
        uint32_t found = std::min(findEnds(at, in.limit(), wanted, ends), wanted);
        uint32_t i = 0;
        __m512i numbers;
        for (; i + 8 <= found && cutEight(at, ends + i, numbers); i += 8) put(out + done + i, numbers);
        in.advanceTo(at + (ends[static_cast<int>(i) - 1] + 1));
        done += i;
        // What is left of the list, a long number, or the last bytes at hand: byte by byte.
        for (uint32_t few = std::min(count - done, i < found ? found - i : 1); few > 0; --few, ++done)
            out[done] = static_cast<Number>(SMF_GetSigned(in));
    }
}
#endif

template <class Number>
void runWith(SMF_Width width, SMF_ByteCursor& in, Number* out, uint32_t count, uint32_t& done) {
    done = 0;
#if defined(__x86_64__)
    if (width == SMF_Width::Avx512) return widestRun(in, out, count, done);
    if (width == SMF_Width::Avx2) return wideRun(in, out, count, done);
#endif
    scalarRun(in, out, count, done);
}

}  // namespace

SMF_Width SMF_BestWidth() noexcept {
#if defined(__x86_64__)
    static const SMF_Width best = [] {
        if (__builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("avx512bw") &&
            __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl"))
            return SMF_Width::Avx512;
        if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2")) return SMF_Width::Avx2;
        return SMF_Width::Scalar;
    }();
    return best;
#else
    return SMF_Width::Scalar;
#endif
}

void SMF_GetSignedRun(SMF_ByteCursor& in, int64_t* out, uint32_t count, uint32_t& done, SMF_Width width) {
    runWith(width, in, out, count, done);
}

void SMF_GetSignedRun(SMF_ByteCursor& in, int32_t* out, uint32_t count, uint32_t& done, SMF_Width width) {
    runWith(width, in, out, count, done);
}
