// MD5 (RFC 1321).

#include "foundation/util.h"

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

// A round of the algorithm: its boolean function, the order in which it takes the message words
// (word_step * i + word_offset modulo 16), and its rotation counts.
struct round_f {
    static constexpr UINT word_step = 1, word_offset = 0;
    static constexpr UINT rotations[4] = {7, 12, 17, 22};
    static UINT mix(UINT x, UINT y, UINT z) { return (x & y) | (~x & z); }
};
struct round_g {
    static constexpr UINT word_step = 5, word_offset = 1;
    static constexpr UINT rotations[4] = {5, 9, 14, 20};
    static UINT mix(UINT x, UINT y, UINT z) { return (x & z) | (y & ~z); }
};
struct round_h {
    static constexpr UINT word_step = 3, word_offset = 5;
    static constexpr UINT rotations[4] = {4, 11, 16, 23};
    static UINT mix(UINT x, UINT y, UINT z) { return x ^ y ^ z; }
};
struct round_i {
    static constexpr UINT word_step = 7, word_offset = 0;
    static constexpr UINT rotations[4] = {6, 10, 15, 21};
    static UINT mix(UINT x, UINT y, UINT z) { return y ^ (x | ~z); }
};

struct chaining_values {
    UINT a, b, c, d;
};

// Sixteen steps. Each changes one chaining value; then the four change places.
template <typename Round> void run_round(chaining_values &v, const UINT block[16], const UINT constants[16])
{
    for (UINT i = 0; i < 16; ++i) {
        const UINT word = block[(Round::word_step * i + Round::word_offset) % 16];
        const UINT sum = v.a + Round::mix(v.b, v.c, v.d) + word + constants[i];
        const UINT stepped = v.b + rotate_left(sum, Round::rotations[i % 4]);
        v = {v.d, stepped, v.b, v.c};
    }
}

void store_little_endian(BYTE bytes[4], UINT word)
{
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<BYTE>(word >> (8 * i));
}

UINT load_little_endian(const BYTE bytes[4])
{
    return bytes[0] | static_cast<UINT>(bytes[1]) << 8 | static_cast<UINT>(bytes[2]) << 16 |
           static_cast<UINT>(bytes[3]) << 24;
}

void load_words(UINT words[], const BYTE bytes[], uint64_t word_count)
{
    for (uint64_t i = 0; i < word_count; ++i)
        words[i] = load_little_endian(bytes + 4 * i);
}

UINT position_in_buffer(const ZT_MD5_CONTEXT *context)
{
    return (context->bit_count[0] >> 3) % BLOCK_BYTES;
}

// Compress one block into the chaining values.
void Transform(UINT state[4], const UINT block[16])
{
    chaining_values v = {state[0], state[1], state[2], state[3]};
    run_round<round_f>(v, block, additive_constants);
    run_round<round_g>(v, block, additive_constants + 16);
    run_round<round_h>(v, block, additive_constants + 32);
    run_round<round_i>(v, block, additive_constants + 48);
    state[0] += v.a;
    state[1] += v.b;
    state[2] += v.c;
    state[3] += v.d;
}

void compress_buffer(ZT_MD5_CONTEXT *context)
{
    UINT block[16];
    load_words(block, context->buffer, 16);
    Transform(context->state, block);
}

void add_to_bit_count(ZT_MD5_CONTEXT *context, UINT byte_count)
{
    const UINT low = context->bit_count[0] + (byte_count << 3);
    const UINT carry = low < context->bit_count[0];
    context->bit_count[0] = low;
    context->bit_count[1] += carry + (byte_count >> 29);
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

// All input passes through the record's buffer byte by byte, so the buffer always holds the last bytes fed
// and input may lie in the record itself. A block is compressed as soon as it is full, even by the last byte.
void MD5Update(ZT_MD5_CONTEXT *context, const void *input, UINT length)
{
    const BYTE *bytes = static_cast<const BYTE *>(input);
    UINT position = position_in_buffer(context);
    add_to_bit_count(context, length);
    for (UINT i = 0; i < length; ++i) {
        context->buffer[position++] = bytes[i];
        if (position == BLOCK_BYTES) {
            compress_buffer(context);
            position = 0;
        }
    }
}

void MD5Final(ZT_MD5_CONTEXT *context)
{
    // The padding is fed like input and advances the count, so the message's own length is saved first.
    const UINT message_bits[2] = {context->bit_count[0], context->bit_count[1]};
    const UINT position = position_in_buffer(context);
    const UINT padding_bytes = (position < LENGTH_POSITION ? 0 : BLOCK_BYTES) + LENGTH_POSITION - position;
    MD5Update(context, PADDING, padding_bytes);

    UINT block[16];
    load_words(block, context->buffer, LENGTH_POSITION / 4);
    block[14] = message_bits[0];
    block[15] = message_bits[1];
    Transform(context->state, block);

    for (uint64_t i = 0; i < 4; ++i)
        store_little_endian(context->digest + 4 * i, context->state[i]);
}
