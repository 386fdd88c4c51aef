// MD5 (RFC 1321).

#include "foundation/util.h"

#include <string.h>

static_assert(offsetof(ZT_MD5_CONTEXT, bit_count) == 0 && offsetof(ZT_MD5_CONTEXT, state) == 8 &&
                  offsetof(ZT_MD5_CONTEXT, buffer) == 24 && offsetof(ZT_MD5_CONTEXT, digest) == 88 &&
                  sizeof(ZT_MD5_CONTEXT) == 104,
              "ZT_MD5_CONTEXT is ABI");

static const BYTE PADDING[64] = {0x80};

namespace {

constexpr UINT BLOCK_BYTES = 64;
constexpr UINT LENGTH_POSITION = 56;  // in the last block, where the message length stands

// floor(2^32 * |sin i|) for i = 1 to 64
constexpr UINT additive_constants[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

UINT rotate_left(UINT word, UINT count)
{
    return (word << count) | (word >> (32 - count));
}

// A block waits for the one before it, and each of its 64 steps for the step before it, whose result is x in
// the functions below. All else is computed meanwhile, so the time is that of the operations between one x
// and the next: 4.5 processor cycles a byte. Three things lengthen that chain or crowd the registers, and
// empty statements that the compiler cannot look into keep it from them.

// The same value, but computed first and not regrouped with what follows.
UINT grouped(UINT value)
{
    __asm__("" : "+r"(value));
    return value;
}

// Sixteen message words, once read, would be kept for the next round: on the stack, for want of registers.
void read_words_anew()
{
    __asm__ volatile("" : : : "memory");
}

// The four additions at the end would become one of a vector, and the way there and back is long.
void add_in_memory(UINT &value, UINT summand)
{
    value += summand;
    __asm__("" : "+m"(value));
}

// A round of the algorithm: its boolean function, the order in which it takes the message words
// (word_step * i + word_offset modulo 16), and its rotation counts. The two halves of the function in round G
// never have a bit in common, so they are added to the sum one by one, and only x & z has to wait for x.
struct round_f {
    static constexpr UINT word_step = 1, word_offset = 0;
    static constexpr UINT rotations[4] = {7, 12, 17, 22};
    static UINT add_mix(UINT sum, UINT x, UINT y, UINT z) { return sum + (z ^ (x & (y ^ z))); }
};
struct round_g {
    static constexpr UINT word_step = 5, word_offset = 1;
    static constexpr UINT rotations[4] = {5, 9, 14, 20};
    static UINT add_mix(UINT sum, UINT x, UINT y, UINT z) { return grouped(sum + (y & ~z)) + (x & z); }
};
struct round_h {
    static constexpr UINT word_step = 3, word_offset = 5;
    static constexpr UINT rotations[4] = {4, 11, 16, 23};
    static UINT add_mix(UINT sum, UINT x, UINT y, UINT z) { return sum + (x ^ grouped(y ^ z)); }
};
struct round_i {
    static constexpr UINT word_step = 7, word_offset = 0;
    static constexpr UINT rotations[4] = {6, 10, 15, 21};
    static UINT add_mix(UINT sum, UINT x, UINT y, UINT z) { return sum + (y ^ (x | ~z)); }
};

// The four that each block changes: A, B, C and D.
struct chaining_values {
    UINT a, b, c, d;
};

UINT load_little_endian(const BYTE bytes[4])
{
    UINT word;
    memcpy(&word, bytes, sizeof word);  // the processor is little-endian
    return word;
}

// Step i of a round. The values take turns: `a` is the one that changes.
template <typename Round, UINT i>
inline void run_step(UINT &a, UINT b, UINT c, UINT d, const BYTE block[], const UINT constants[])
{
    const UINT word = load_little_endian(block + 4 * ((Round::word_step * i + Round::word_offset) % 16));
    a = b + rotate_left(Round::add_mix(grouped(a + constants[i] + word), b, c, d), Round::rotations[i % 4]);
}

template <typename Round, UINT i>
inline void run_four_steps(chaining_values &v, const BYTE block[], const UINT constants[])
{
    run_step<Round, i>(v.a, v.b, v.c, v.d, block, constants);
    run_step<Round, i + 1>(v.d, v.a, v.b, v.c, block, constants);
    run_step<Round, i + 2>(v.c, v.d, v.a, v.b, block, constants);
    run_step<Round, i + 3>(v.b, v.c, v.d, v.a, block, constants);
}

template <typename Round>
inline void run_round(chaining_values &v, const BYTE block[], const UINT constants[])
{
    read_words_anew();
    run_four_steps<Round, 0>(v, block, constants);
    run_four_steps<Round, 4>(v, block, constants);
    run_four_steps<Round, 8>(v, block, constants);
    run_four_steps<Round, 12>(v, block, constants);
}

// Compress one block into the chaining values.
void Transform(UINT state[4], const BYTE block[BLOCK_BYTES])
{
    chaining_values v = {state[0], state[1], state[2], state[3]};
    run_round<round_f>(v, block, additive_constants);
    run_round<round_g>(v, block, additive_constants + 16);
    run_round<round_h>(v, block, additive_constants + 32);
    run_round<round_i>(v, block, additive_constants + 48);
    add_in_memory(state[0], v.a);
    add_in_memory(state[1], v.b);
    add_in_memory(state[2], v.c);
    add_in_memory(state[3], v.d);
}

UINT position_in_buffer(const ZT_MD5_CONTEXT *context)
{
    return (context->bit_count[0] >> 3) % BLOCK_BYTES;
}

void add_to_bit_count(ZT_MD5_CONTEXT *context, UINT byte_count)
{
    const UINT low = context->bit_count[0] + (byte_count << 3);
    const UINT carry = low < context->bit_count[0];
    context->bit_count[0] = low;
    context->bit_count[1] += carry + (byte_count >> 29);
}

bool lies_in_record(const ZT_MD5_CONTEXT *context, const BYTE *bytes, UINT length)
{
    const uintptr_t record = reinterpret_cast<uintptr_t>(context);
    const uintptr_t input = reinterpret_cast<uintptr_t>(bytes);
    return input < record + sizeof *context && record < input + length;
}

// Each byte is read when its turn comes: it may be one that an earlier byte or block has just changed.
void feed_byte_by_byte(ZT_MD5_CONTEXT *context, UINT position, const BYTE *bytes, UINT length)
{
    for (UINT i = 0; i < length; ++i) {
        context->buffer[position++] = bytes[i];
        if (position == BLOCK_BYTES) {
            Transform(context->state, context->buffer);
            position = 0;
        }
    }
}

void feed_in_pieces(ZT_MD5_CONTEXT *context, UINT position, const BYTE *bytes, UINT length)
{
    UINT vacant = BLOCK_BYTES - position;
    while (length >= vacant) {
        memcpy(context->buffer + position, bytes, vacant);
        Transform(context->state, context->buffer);
        bytes += vacant;
        length -= vacant;
        position = 0;
        vacant = BLOCK_BYTES;
    }
    memcpy(context->buffer + position, bytes, length);
}

}  // namespace

void MD5Init(ZT_MD5_CONTEXT *context)
{
    context->bit_count[0] = 0;
    context->bit_count[1] = 0;
    context->state[0] = 0x67452301;
    context->state[1] = 0xEFCDAB89;
    context->state[2] = 0x98BADCFE;
    context->state[3] = 0x10325476;
}

// All input passes through the record's buffer, which so always holds the last bytes fed, and input may lie
// in the record itself. A block is compressed as soon as it is full, even by the last byte.
void MD5Update(ZT_MD5_CONTEXT *context, const void *input, UINT length)
{
    const BYTE *bytes = static_cast<const BYTE *>(input);
    const UINT position = position_in_buffer(context);
    add_to_bit_count(context, length);
    if (length == 0)
        return;
    if (lies_in_record(context, bytes, length))
        feed_byte_by_byte(context, position, bytes, length);
    else
        feed_in_pieces(context, position, bytes, length);
}

void MD5Final(ZT_MD5_CONTEXT *context)
{
    // The padding is fed like input and advances the count, so the message's own length is saved first.
    const UINT message_bits[2] = {context->bit_count[0], context->bit_count[1]};
    const UINT position = position_in_buffer(context);
    const UINT padding_bytes = (position < LENGTH_POSITION ? 0 : BLOCK_BYTES) + LENGTH_POSITION - position;
    MD5Update(context, PADDING, padding_bytes);

    // The length stands in the buffer for this one block; what was there comes back.
    BYTE *const length_in_block = context->buffer + LENGTH_POSITION;
    BYTE kept[sizeof message_bits];
    memcpy(kept, length_in_block, sizeof kept);
    memcpy(length_in_block, message_bits, sizeof message_bits);
    Transform(context->state, context->buffer);
    memcpy(length_in_block, kept, sizeof kept);

    memcpy(context->digest, context->state, sizeof context->digest);
}
