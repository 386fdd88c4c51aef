// The MD5 record: what each step leaves in it, byte for byte.

#include "util/checksums_fixture.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace {

constexpr BYTE FILL = 0xA5;

// A record in which every byte is FILL.
ZT_MD5_CONTEXT filled_record()
{
    ZT_MD5_CONTEXT context;
    memset(&context, FILL, sizeof context);
    return context;
}

template <size_t size> bool is_filled(const BYTE (&bytes)[size])
{
    for (size_t i = 0; i < size; ++i)
        if (bytes[i] != FILL)
            return false;
    return true;
}

// The chaining values after the whole blocks of a message.
md5_state expected_state(const BYTE *bytes, size_t count)
{
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, bytes, count / 64 * 64);
    return state_of(context);
}

// The 64 bytes as copying one by one leaves them: each place holds the last byte that went there, or what it
// held before.
std::array<BYTE, 64> expected_buffer(const std::vector<BYTE> &bytes, size_t count)
{
    std::array<BYTE, 64> buffer;
    buffer.fill(FILL);
    for (size_t i = 0; i < count; ++i)
        buffer[i % 64] = bytes[i];
    return buffer;
}

std::array<BYTE, 64> buffer_of(const ZT_MD5_CONTEXT &context)
{
    std::array<BYTE, 64> buffer;
    memcpy(buffer.data(), context.buffer, buffer.size());
    return buffer;
}

}  // namespace

TEST(Md5Record, IsCountStateBufferAndDigestInThatOrder)
{
    std::array<UINT, 26> words;
    words.fill(0xA5A5A5A5);
    static_assert(sizeof words == sizeof(ZT_MD5_CONTEXT));
    ZT_MD5_CONTEXT *const context = reinterpret_cast<ZT_MD5_CONTEXT *>(words.data());
    MD5Init(context);
    MD5Update(context, "abcd", 4);
    EXPECT_EQ(words[0], 32u) << "the count's low word";
    EXPECT_EQ(words[1], 0u) << "the count's high word";
    EXPECT_EQ((md5_state{words[2], words[3], words[4], words[5]}),
              (md5_state{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476}));
    EXPECT_EQ(memcmp(&words[6], "abcd", 4), 0) << "the buffer";
    MD5Final(context);
    const digest_bytes expected = expected_digest("abcd", 4);
    EXPECT_EQ(memcmp(&words[22], expected.data(), expected.size()), 0) << "the digest";
}

TEST(Md5Record, AfterInitHoldsTheInitialStateAndLeavesBufferAndDigestAlone)
{
    ZT_MD5_CONTEXT context = filled_record();
    MD5Init(&context);
    EXPECT_EQ(context.bit_count[0], 0u);
    EXPECT_EQ(context.bit_count[1], 0u);
    EXPECT_EQ(state_of(context), (md5_state{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476}));
    EXPECT_TRUE(is_filled(context.buffer)) << "the buffer was written to";
    EXPECT_TRUE(is_filled(context.digest)) << "the digest was written to";
}

TEST(Md5Record, AfterUpdateHoldsCountStateAndTheLastBytesInPlace)
{
    const std::vector<BYTE> bytes = patterned_bytes(200);
    for (size_t length = 0; length <= bytes.size(); ++length) {
        ZT_MD5_CONTEXT context = filled_record();
        MD5Init(&context);
        MD5Update(&context, bytes.data(), static_cast<UINT>(length));
        ASSERT_EQ(context.bit_count[0], 8 * length);
        ASSERT_EQ(context.bit_count[1], 0u);
        // A block is compressed as soon as it is full: the state is that of all whole blocks.
        ASSERT_EQ(state_of(context), expected_state(bytes.data(), length)) << length;
        ASSERT_TRUE(is_filled(context.digest)) << "the digest was written to";
        ASSERT_EQ(buffer_of(context), expected_buffer(bytes, length)) << length;
    }
}

TEST(Md5Record, AfterUpdatesInPiecesHoldsWhatItHoldsAfterOne)
{
    const std::vector<BYTE> bytes = patterned_bytes(400);
    for (size_t first = 0; first <= 128; ++first)
        for (const size_t second : {1u, 2u, 63u, 64u, 65u, 127u, 128u, 129u, 200u, 256u}) {
            ZT_MD5_CONTEXT context = filled_record();
            MD5Init(&context);
            MD5Update(&context, bytes.data(), static_cast<UINT>(first));
            MD5Update(&context, bytes.data() + first, static_cast<UINT>(second));
            ASSERT_EQ(context.bit_count[0], 8 * (first + second));
            ASSERT_EQ(state_of(context), expected_state(bytes.data(), first + second))
                << first << " and " << second << " bytes";
            ASSERT_EQ(buffer_of(context), expected_buffer(bytes, first + second))
                << first << " and " << second << " bytes";
        }
}

TEST(Md5Record, IsUnchangedByAnUpdateOfNothing)
{
    ZT_MD5_CONTEXT context = filled_record();
    MD5Init(&context);
    MD5Update(&context, "abc", 3);
    const ZT_MD5_CONTEXT before = context;
    MD5Update(&context, nullptr, 0);
    EXPECT_EQ(memcmp(&context, &before, sizeof context), 0);
}

TEST(Md5Record, AfterFinalHoldsThePaddedCountTheFinalStateAndThePadding)
{
    const std::vector<BYTE> bytes = patterned_bytes(200);
    for (size_t length = 0; length <= bytes.size(); ++length) {
        const size_t padding = length % 64 < 56 ? 56 - length % 64 : 120 - length % 64;
        std::vector<BYTE> padded(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length));
        padded.push_back(0x80);
        padded.resize(length + padding);

        ZT_MD5_CONTEXT context = filled_record();
        MD5Init(&context);
        MD5Update(&context, bytes.data(), static_cast<UINT>(length));
        MD5Final(&context);
        ASSERT_EQ(context.bit_count[0], 8 * padded.size()) << length;
        ASSERT_EQ(context.bit_count[1], 0u);
        for (size_t i = 0; i < 16; ++i)
            ASSERT_EQ(context.digest[i], static_cast<BYTE>(context.state[i / 4] >> (8 * (i % 4))));
        ASSERT_EQ(digest_of(context), expected_digest(bytes.data(), length));
        // The length is compressed with the last block but does not pass through the buffer.
        ASSERT_EQ(buffer_of(context), expected_buffer(padded, padded.size())) << length;
    }
}

TEST(Md5Record, FinishedTwiceGivesTheDigestOfThePaddedMessagePaddedAgain)
{
    ZT_MD5_CONTEXT context;
    MD5Init(&context);
    MD5Update(&context, "abc", 3);
    MD5Final(&context);
    // The second time, the message is the first's 56 padded bytes behind a block that has been compressed:
    // 64 bytes of padding, two compressions, and the length of the padded message.
    MD5_CTX reference = {};
    reference.A = context.state[0];
    reference.B = context.state[1];
    reference.C = context.state[2];
    reference.D = context.state[3];
    BYTE block[64];
    memcpy(block, context.buffer, 56);
    memset(block + 56, 0, 8);
    block[56] = 0x80;
    MD5_Transform(&reference, block);
    memset(block, 0, sizeof block);
    block[56] = 0xC0;  // 56 bytes are 0x1C0 bits
    block[57] = 0x01;
    MD5_Transform(&reference, block);

    MD5Final(&context);
    EXPECT_EQ(state_of(context), state_of(reference));
    EXPECT_NE(hexadecimal(digest_of(context)), "900150983cd24fb0d6963f7d28e17f72");
}
