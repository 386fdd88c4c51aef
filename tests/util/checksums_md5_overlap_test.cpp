// MD5 of input that lies in the record itself, against the definition carried out byte by byte.

#include "foundation/util.h"

#include <gtest/gtest.h>

#define OPENSSL_SUPPRESS_DEPRECATED  // one block can be compressed only through the old interface
#include <openssl/md5.h>

#include <string.h>

#include <random>

namespace {

// A record amid other bytes; input may begin in any of them.
struct surroundings {
    BYTE in_front[104];
    ZT_MD5_CONTEXT record;
    BYTE behind[304];

    BYTE *bytes() { return reinterpret_cast<BYTE *>(this); }
};
static_assert(sizeof(surroundings) == 512, "no gaps, so that all of it can be compared");

surroundings random_surroundings(UINT bytes_in_buffer)
{
    std::mt19937 generator(bytes_in_buffer);
    surroundings all;
    for (size_t i = 0; i < sizeof all; ++i)
        all.bytes()[i] = static_cast<BYTE>(generator() >> 24);
    all.record.bit_count[0] = 8 * (64 + bytes_in_buffer);
    return all;
}

void compress(UINT state[4], const BYTE block[64])
{
    MD5_CTX context = {};
    context.A = state[0];
    context.B = state[1];
    context.C = state[2];
    context.D = state[3];
    MD5_Transform(&context, block);
    state[0] = context.A;
    state[1] = context.B;
    state[2] = context.C;
    state[3] = context.D;
}

// The count first; then each byte is read when its turn comes.
void update_by_definition(ZT_MD5_CONTEXT &record, const BYTE *input, UINT length)
{
    UINT index = record.bit_count[0] / 8 % 64;
    const uint64_t bits = (uint64_t{record.bit_count[1]} << 32 | record.bit_count[0]) + uint64_t{length} * 8;
    record.bit_count[0] = static_cast<UINT>(bits);
    record.bit_count[1] = static_cast<UINT>(bits >> 32);
    const volatile BYTE *bytes = input;
    for (UINT i = 0; i < length; ++i) {
        record.buffer[index++] = bytes[i];
        if (index == 64) {
            compress(record.state, record.buffer);
            index = 0;
        }
    }
}

}  // namespace

TEST(Md5Overlap, InputThatLiesAnywhereAboutTheRecordIsReadByteByByte)
{
    for (const UINT bytes_in_buffer : {0u, 1u, 37u, 63u})
        for (UINT begin = 0; begin < offsetof(surroundings, behind) + 4; ++begin)
            for (const UINT length : {1u, 2u, 15u, 16u, 40u, 63u, 64u, 65u, 104u, 128u, 150u, 300u}) {
                surroundings actual = random_surroundings(bytes_in_buffer);
                surroundings expected = actual;
                update_by_definition(expected.record, expected.bytes() + begin, length);
                MD5Update(&actual.record, actual.bytes() + begin, length);
                ASSERT_EQ(memcmp(&actual, &expected, sizeof actual), 0)
                    << length << " bytes from " << static_cast<int>(begin) - 104
                    << " behind the record's begin, " << bytes_in_buffer << " in the buffer before";
            }
}
