// CRC-32 by folding 64 bytes at a time, four times sixteen side by side, with VPCLMULQDQ and AVX-512. The
// idea stands in the header.

#include "checksums_crc_folding.h"

#include <cpuid.h>

#define QV_AVX512_FEATURES "pclmul,sse4.1,vpclmulqdq,avx512f,avx512vl,avx512bw,avx512vbmi"
#define QV_AVX512 [[gnu::target(QV_AVX512_FEATURES)]]
#define QV_AVX512_INLINE [[gnu::target(QV_AVX512_FEATURES), gnu::always_inline]] inline

namespace {

// Whether the system keeps the wide registers when it switches between threads: bits 1 and 2 for the lower
// parts, 5 to 7 for the mask registers and what AVX-512 adds.
[[gnu::target("xsave")]] bool system_keeps_wide_registers()
{
    constexpr uint64_t wide_state = 0xE6;
    return (_xgetbv(0) & wide_state) == wide_state;
}

}  // namespace

// Each question asked of the processor is a trap into a hypervisor, if there is one: ask two and no more. A
// system that keeps the wide registers runs on a processor that answers the second.
bool has_avx512_folding()
{
    unsigned eax, ebx, ecx, edx;
    __cpuid(1, eax, ebx, ecx, edx);
    if ((ecx & bit_PCLMUL) == 0 || (ecx & bit_OSXSAVE) == 0 || !system_keeps_wide_registers())
        return false;
    __cpuid_count(7, 0, eax, ebx, ecx, edx);
    constexpr unsigned in_ebx = bit_AVX512F | bit_AVX512VL | bit_AVX512BW;
    constexpr unsigned in_ecx = bit_AVX512VBMI | bit_VPCLMULQDQ;
    return (ebx & in_ebx) == in_ebx && (ecx & in_ecx) == in_ecx;
}

namespace {

constexpr uint64_t BLOCK_BYTES = 64;

QV_AVX512_INLINE __m512i load_64_bytes(const BYTE *bytes)
{
    return _mm512_loadu_si512(bytes);
}

// The initial value, or what is left of it, added to a block's first bytes.
QV_AVX512_INLINE __m512i with_initial(__m512i block, UINT initial)
{
    return _mm512_xor_si512(block, _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(initial))));
}

QV_AVX512_INLINE __m512i multipliers_for(const fold_multipliers &distance)
{
    const int64_t first = static_cast<int64_t>(distance.first_half);
    const int64_t second = static_cast<int64_t>(distance.second_half);
    return _mm512_set4_epi64(second, first, second, first);
}

QV_AVX512_INLINE __m512i fold_64_bytes(__m512i ahead, __m512i block, __m512i multipliers)
{
    constexpr int xor_of_three = 0x96;
    return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(ahead, multipliers, 0x00),
                                     _mm512_clmulepi64_epi128(ahead, multipliers, 0x11), block, xor_of_three);
}

// The block's first `count` bytes behind zeros: byte i of the result is byte i + count - 64 of the block.
QV_AVX512_INLINE __m512i behind_zeros(__m512i block, uint64_t count)
{
    alignas(64) static constexpr BYTE numbers[64] = {
        0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21,
        22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43,
        44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63};
    const __m512i indices =
        _mm512_add_epi8(load_64_bytes(numbers), _mm512_set1_epi8(static_cast<char>(count)));
    return _mm512_maskz_permutexvar_epi8(~UINT64_C(0) << (64 - count), indices, block);
}

// The four times sixteen bytes folded into the last of them.
QV_AVX512_INLINE __m128i fold_to_16_bytes(__m512i sum)
{
    alignas(64) static constexpr fold_multipliers to_the_last[4] = {over<48>, over<32>, over<16>, {0, 0}};
    const __m512i last = _mm512_maskz_mov_epi64(0xC0, sum);
    const __m512i folded = fold_64_bytes(sum, last, _mm512_load_si512(to_the_last));
    // The forms with a mask, because the plain ones of g++ 12's header begin with an uninitialised value.
    const __m256i halves = _mm256_xor_si256(_mm512_maskz_extracti64x4_epi64(0xF, folded, 0),
                                            _mm512_maskz_extracti64x4_epi64(0xF, folded, 1));
    return _mm_xor_si128(_mm256_castsi256_si128(halves), _mm256_extracti128_si256(halves, 1));
}

// Whether a whole block could be read: then the reading under a mask is fast. Where it reaches into a page
// that is not there, it is right too, but takes fifty times as long.
bool is_block_within_page(const BYTE *bytes)
{
    constexpr uintptr_t page_bytes = 4096;
    return reinterpret_cast<uintptr_t>(bytes) % page_bytes <= page_bytes - BLOCK_BYTES;
}

// For 16 to 63 bytes: what the mask leaves out is not read.
QV_AVX512_INLINE uint64_t crc_of_part_of_block(const BYTE *bytes, uint64_t length)
{
    const __m512i block = _mm512_maskz_loadu_epi8((UINT64_C(1) << length) - 1, bytes);
    return crc_of_16_bytes(fold_to_16_bytes(behind_zeros(with_initial(block, CRC_INITIAL), length)));
}

}  // namespace

QV_AVX512 uint64_t calculate_by_avx512(const BYTE *bytes, uint64_t length)
{
    if (length < 16)
        return calculate_by_table(bytes, length);
    if (length < BLOCK_BYTES && is_block_within_page(bytes))
        return crc_of_part_of_block(bytes, length);
    if (length < BLOCK_BYTES) {
        // That kernel has instructions of the old encoding. Those keep the upper parts of the registers,
        // which makes each wait for an earlier one as long as a caller's own wide arithmetic has left
        // something there.
        _mm256_zeroupper();
        return calculate_by_pclmul(bytes, length);
    }
    const __m512i over_one = multipliers_for(over<BLOCK_BYTES>);

    __m512i sum = with_initial(load_64_bytes(bytes), CRC_INITIAL);
    const uint64_t uneven = length % BLOCK_BYTES;
    if (uneven != 0) {
        const __m512i front = behind_zeros(sum, uneven);
        bytes += uneven;
        sum = fold_64_bytes(front, with_initial(load_64_bytes(bytes), initial_behind(uneven)), over_one);
    }
    const BYTE *const end = bytes + (length - uneven);
    bytes += BLOCK_BYTES;

    if (static_cast<uint64_t>(end - bytes) >= 3 * BLOCK_BYTES) {
        const __m512i over_four = multipliers_for(over<4 * BLOCK_BYTES>);
        __m512i sum1 = load_64_bytes(bytes);
        __m512i sum2 = load_64_bytes(bytes + BLOCK_BYTES);
        __m512i sum3 = load_64_bytes(bytes + 2 * BLOCK_BYTES);
        for (bytes += 3 * BLOCK_BYTES; static_cast<uint64_t>(end - bytes) >= 4 * BLOCK_BYTES;
             bytes += 4 * BLOCK_BYTES) {
            sum = fold_64_bytes(sum, load_64_bytes(bytes), over_four);
            sum1 = fold_64_bytes(sum1, load_64_bytes(bytes + BLOCK_BYTES), over_four);
            sum2 = fold_64_bytes(sum2, load_64_bytes(bytes + 2 * BLOCK_BYTES), over_four);
            sum3 = fold_64_bytes(sum3, load_64_bytes(bytes + 3 * BLOCK_BYTES), over_four);
        }
        sum1 = fold_64_bytes(sum, sum1, over_one);
        sum3 = fold_64_bytes(sum2, sum3, over_one);
        sum = fold_64_bytes(sum1, sum3, multipliers_for(over<2 * BLOCK_BYTES>));
    }
    for (; bytes != end; bytes += BLOCK_BYTES)
        sum = fold_64_bytes(sum, load_64_bytes(bytes), over_one);
    return crc_of_16_bytes(fold_to_16_bytes(sum));
}
