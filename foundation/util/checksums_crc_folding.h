// Folding: a CRC-32 sixteen bytes and more at a time, by carry-less multiplication. Private to the unit.
//
// A message is a polynomial over the two-element field, one coefficient a bit, the first bit being the
// highest power; addition is XOR. Its CRC is the remainder of message * x^32 after division by
//     P = x^32 + x^26 + x^23 + x^22 + x^16 + x^12 + x^11 + x^10 + x^8 + x^7 + x^5 + x^4 + x^2 + x + 1,
// with 32 one bits added to the message's first 32 bits before, and to the remainder after. Three facts make
// it fast:
//
//   1. Only the remainder counts, so a part of the message may be replaced by any other with the same one.
//      Let sixteen bytes, A, stand D bits in front of another sixteen, B: together A * x^D + B. In halves of
//      64 bits, A * x^D = first * x^(D+64) + second * x^D. With both powers of x taken modulo P these are two
//      products that fit sixteen bytes. Added to B they take its place, and A is gone: folded into B.
//   2. It does not matter what lies between A and B. Several sums, each folded over the bytes of the others,
//      keep the multiplier busy; they are folded into one at the end.
//   3. Zero bits in front of a message add nothing. So a length that is no multiple of a block is made one by
//      zeros in front of the first bytes, and no kernel has a tail.
//
// The CRC is reflected: bit 0 of a byte is its highest power. A register of n bits, loaded as the bytes lie
// in memory, holds the coefficient of x^(n-1) in bit 0 and that of x^0 in its last bit. Two 64-bit registers
// then multiply into 127 bits, with the coefficient of x^126 in bit 0; read as 128 bits that is one power too
// high. The constants make up for it.
#pragma once

#include "checksums_crc_kernels.h"

#include <immintrin.h>

// x^exponent mod P, reflected in 32 bits: each step multiplies by x and, when x^32 appears, subtracts P.
constexpr UINT power_of_x(unsigned exponent)
{
    UINT power = 0x80000000;  // x^0
    for (unsigned i = 0; i < exponent; ++i)
        power = (power >> 1) ^ ((power & 1) != 0 ? CRC_POLYNOMIAL : 0);
    return power;
}

// What a reflected half is multiplied by to gain x^exponent. The 32 bits of a remainder, shifted by one,
// stand for (x^(exponent-32) mod P) * x^31; the power too much in the product makes that x^32.
constexpr uint64_t multiplier(unsigned exponent)
{
    return static_cast<uint64_t>(power_of_x(exponent - 32)) << 1;
}

// The whole part of x^95 / P, reflected in 64 bits: one long division, whose remainder is power_of_x(95).
constexpr uint64_t quotient_of_x95()
{
    uint64_t quotient = 0;
    for (unsigned exponent = 0; exponent < 95; ++exponent)
        quotient = (quotient >> 1) | static_cast<uint64_t>(power_of_x(exponent) & 1) << 63;
    return quotient;
}

// P itself, times x^31, reflected in 64 bits.
constexpr uint64_t POLYNOMIAL_33_BITS = static_cast<uint64_t>(CRC_POLYNOMIAL) << 1 | 1;

// The two multipliers that fold sixteen bytes over a distance.
struct fold_multipliers {
    uint64_t first_half, second_half;
};

template <unsigned bytes>
inline constexpr fold_multipliers over = {multiplier(8 * bytes + 64), multiplier(8 * bytes)};

#define QV_PCLMUL [[gnu::target("pclmul,sse4.1")]]
#define QV_PCLMUL_INLINE [[gnu::target("pclmul,sse4.1"), gnu::always_inline]] inline

QV_PCLMUL_INLINE __m128i load_16_bytes(const void *bytes)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(bytes));
}

// `ahead` folded into `block`, which stands as far behind it as the multipliers say.
QV_PCLMUL_INLINE __m128i fold_16_bytes(__m128i ahead, __m128i block, __m128i multipliers)
{
    const __m128i first = _mm_clmulepi64_si128(ahead, multipliers, 0x00);
    const __m128i second = _mm_clmulepi64_si128(ahead, multipliers, 0x11);
    return _mm_xor_si128(_mm_xor_si128(first, second), block);
}

// The CRC of sixteen bytes to which the message has been folded: (sum * x^32) mod P, in three
// multiplications.
//
// First sum * x^64 in 96 bits: the second half only moves to the front, the first is folded. The bits 0 to 63
// of that, U, stand for powers from x^64 on and the next 32, L, for x^32 to x^63; behind them is nothing,
// so this is V * x^32 with V = U * x^32 + L, and V mod P is wanted.
//
// Then Barrett's division, exact for polynomials. The quotient of V / P is the whole part of
// U * (x^96 / P) / x^64; neither the rest of x^96 / P nor its last coefficient reaches into that, which
// leaves x * quotient_of_x95(), and the x is the product's own. The quotient is then the product's first
// half, and V - quotient * P has only 32 bits, those that stand where L does.
QV_PCLMUL_INLINE uint64_t crc_of_16_bytes(__m128i sum)
{
    constexpr uint64_t over_64_bits = multiplier(128);
    constexpr uint64_t division[2] = {quotient_of_x95(), POLYNOMIAL_33_BITS};
    const __m128i fold = _mm_cvtsi64_si128(static_cast<int64_t>(over_64_bits));
    const __m128i divide = load_16_bytes(division);
    const __m128i v = _mm_xor_si128(_mm_clmulepi64_si128(sum, fold, 0x00), _mm_srli_si128(sum, 8));
    const __m128i quotient = _mm_clmulepi64_si128(v, divide, 0x00);
    const __m128i product = _mm_clmulepi64_si128(quotient, divide, 0x10);
    return static_cast<UINT>(_mm_extract_epi32(_mm_xor_si128(v, product), 2)) ^ CRC_INITIAL;
}

// What is left of the initial value behind the first `bytes` bytes, to which the others have been added.
constexpr UINT initial_behind(uint64_t bytes)
{
    return bytes < 4 ? CRC_INITIAL >> (8 * bytes) : 0;
}
