// CRC-32 by folding sixteen bytes at a time, with PCLMULQDQ and SSE4.1. The idea stands in the header.

#include "checksums_crc_folding.h"

#include <cpuid.h>

bool has_pclmul_folding()
{
    unsigned eax, ebx, ecx, edx;
    __cpuid(1, eax, ebx, ecx, edx);
    return (ecx & bit_PCLMUL) != 0 && (ecx & bit_SSE4_1) != 0;
}

namespace {

constexpr uint64_t BLOCK_BYTES = 16;

QV_PCLMUL_INLINE __m128i multipliers_for(const fold_multipliers &distance)
{
    return _mm_set_epi64x(static_cast<int64_t>(distance.second_half),
                          static_cast<int64_t>(distance.first_half));
}

// The initial value, or what is left of it, in front of a block's bytes.
QV_PCLMUL_INLINE __m128i load_first_16_bytes(const BYTE *bytes, UINT initial)
{
    return _mm_xor_si128(load_16_bytes(bytes), _mm_cvtsi32_si128(static_cast<int>(initial)));
}

// The block's first `count` bytes behind zeros.
QV_PCLMUL_INLINE __m128i behind_zeros(__m128i block, uint64_t count)
{
    // Byte i of the result is byte i + count - 16 of the block; an index of 0x80 gives zero.
    alignas(16) static constexpr BYTE indices[32] = {
        0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
        0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15};
    return _mm_shuffle_epi8(block, load_16_bytes(indices + count));
}

}  // namespace

QV_PCLMUL uint64_t calculate_by_pclmul(const BYTE *bytes, uint64_t length)
{
    if (length < BLOCK_BYTES)
        return calculate_by_table(bytes, length);
    const __m128i over_one = multipliers_for(over<BLOCK_BYTES>);

    __m128i sum = load_first_16_bytes(bytes, CRC_INITIAL);
    const uint64_t uneven = length % BLOCK_BYTES;
    if (uneven != 0) {
        const __m128i front = behind_zeros(sum, uneven);
        bytes += uneven;
        sum = fold_16_bytes(front, load_first_16_bytes(bytes, initial_behind(uneven)), over_one);
    }
    const BYTE *const end = bytes + (length - uneven);
    bytes += BLOCK_BYTES;

    if (static_cast<uint64_t>(end - bytes) >= 3 * BLOCK_BYTES) {
        const __m128i over_four = multipliers_for(over<4 * BLOCK_BYTES>);
        __m128i sum1 = load_16_bytes(bytes);
        __m128i sum2 = load_16_bytes(bytes + BLOCK_BYTES);
        __m128i sum3 = load_16_bytes(bytes + 2 * BLOCK_BYTES);
        for (bytes += 3 * BLOCK_BYTES; static_cast<uint64_t>(end - bytes) >= 4 * BLOCK_BYTES;
             bytes += 4 * BLOCK_BYTES) {
            sum = fold_16_bytes(sum, load_16_bytes(bytes), over_four);
            sum1 = fold_16_bytes(sum1, load_16_bytes(bytes + BLOCK_BYTES), over_four);
            sum2 = fold_16_bytes(sum2, load_16_bytes(bytes + 2 * BLOCK_BYTES), over_four);
            sum3 = fold_16_bytes(sum3, load_16_bytes(bytes + 3 * BLOCK_BYTES), over_four);
        }
        sum1 = fold_16_bytes(sum, sum1, over_one);
        sum3 = fold_16_bytes(sum2, sum3, over_one);
        sum = fold_16_bytes(sum1, sum3, multipliers_for(over<2 * BLOCK_BYTES>));
    }
    for (; bytes != end; bytes += BLOCK_BYTES)
        sum = fold_16_bytes(sum, load_16_bytes(bytes), over_one);
    return crc_of_16_bytes(sum);
}
