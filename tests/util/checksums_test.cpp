// CRC-32 against zlib, MD5 against libcrypto.

#include "foundation/util.h"

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/guarded_bytes.h"
#include "support/library_copy.h"

#include <gtest/gtest.h>

#define OPENSSL_SUPPRESS_DEPRECATED  // the chaining values show only in the old interface's record
#include <openssl/md5.h>
#include <zlib.h>

#include <string.h>
#include <sys/mman.h>

#include <array>
#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using digest_bytes = std::array<BYTE, 16>;

std::vector<BYTE> patterned_bytes(size_t count)
{
    std::mt19937 generator(20170u + static_cast<unsigned>(count));
    std::vector<BYTE> bytes(count);
    for (BYTE &byte : bytes)
        byte = static_cast<BYTE>(generator() >> 24);
    return bytes;
}

uint64_t crc(const std::string &text)
{
    return ZR_util_CRC_calc(text.data(), text.size());
}

uint64_t expected_crc(const BYTE *bytes, size_t count)
{
    return crc32(0, bytes, static_cast<uInt>(count));
}

digest_bytes digest_of(const ZT_MD5_CONTEXT &context)
{
    digest_bytes digest;
    memcpy(digest.data(), context.digest, digest.size());
    return digest;
}

digest_bytes digest(const void *bytes, size_t count)
{
    ZT_MD5_CONTEXT context;
    MD5Init(&context);
    MD5Update(&context, bytes, static_cast<UINT>(count));
    MD5Final(&context);
    return digest_of(context);
}

digest_bytes expected_digest(const void *bytes, size_t count)
{
    digest_bytes result;
    MD5(static_cast<const unsigned char *>(bytes), count, result.data());
    return result;
}

std::string hexadecimal(const digest_bytes &digest)
{
    std::string text;
    for (const BYTE byte : digest) {
        text += "0123456789abcdef"[byte / 16];
        text += "0123456789abcdef"[byte % 16];
    }
    return text;
}

std::string hexadecimal_digest(const std::string &message)
{
    return hexadecimal(digest(message.data(), message.size()));
}

}  // namespace

// ---- CRC-32

TEST(Crc, GivesThePublishedValues)
{
    EXPECT_EQ(crc("123456789"), 0xCBF43926u);
    EXPECT_EQ(crc(std::string(1, '\0')), 0xD202EF8Du);
    EXPECT_EQ(crc("a"), 0xE8B7BE43u);
    EXPECT_EQ(crc("The quick brown fox jumps over the lazy dog"), 0x414FA339u);
    EXPECT_EQ(crc(std::string(32, '\0')), 0x190A55ADu);
    EXPECT_EQ(crc(std::string(32, '\xff')), 0xFF6CAB0Bu);
}

TEST(Crc, OfNothingIsZeroAlsoForANullPointer)
{
    EXPECT_EQ(ZR_util_CRC_calc("", 0), 0u);
    EXPECT_EQ(ZR_util_CRC_calc(nullptr, 0), 0u);
    EXPECT_EQ(ZR_util_CRC_calc(reinterpret_cast<const void *>(1), 0), 0u);
}

// The CRC of one byte is, up to a constant, the table's entry for the byte's complement.
TEST(Crc, TableHoldsTheRemaindersOfAllBytes)
{
    const auto entry = [](unsigned index) {
        const BYTE byte = static_cast<BYTE>(~index);
        return ZR_util_CRC_calc(&byte, 1) ^ 0xFF000000;
    };
    EXPECT_EQ(entry(0), 0x00000000u);
    EXPECT_EQ(entry(1), 0x77073096u);
    EXPECT_EQ(entry(2), 0xEE0E612Cu);
    EXPECT_EQ(entry(128), 0xEDB88320u);
    EXPECT_EQ(entry(255), 0x2D02EF8Du);
    for (unsigned index = 0; index < 256; ++index)
        EXPECT_EQ(entry(index), get_crc_table()[index]) << index;
}

TEST(Crc, AgreesWithZlibForEveryLengthAndAlignment)
{
    constexpr size_t longest = 1024;
    std::vector<BYTE> bytes = patterned_bytes(longest + 16);
    for (size_t alignment = 0; alignment < 16; ++alignment)
        for (size_t length = 0; length <= longest; ++length) {
            const BYTE *start = bytes.data() + alignment;
            ASSERT_EQ(ZR_util_CRC_calc(start, length), expected_crc(start, length))
                << length << " at " << alignment;
        }
}

TEST(Crc, ReadsNothingBehindTheBuffer)
{
    for (size_t length = 1; length <= 300; ++length) {
        const std::vector<BYTE> bytes = patterned_bytes(length);
        guarded_bytes guarded(bytes.data(), length);
        EXPECT_EQ(ZR_util_CRC_calc(guarded.data(), length), expected_crc(bytes.data(), length)) << length;
    }
}

TEST(Crc, OfALargeBufferAgreesWithZlib)
{
    const std::vector<BYTE> bytes = patterned_bytes(3000001);
    EXPECT_EQ(ZR_util_CRC_calc(bytes.data(), bytes.size()), expected_crc(bytes.data(), bytes.size()));
}

TEST(Crc, StartsAfreshInEveryCall)
{
    EXPECT_EQ(crc("a"), crc("a"));
    crc("something else");
    EXPECT_EQ(crc("a"), 0xE8B7BE43u);
}

// A length cut to 32 bits would be 0 here, and the call would read nothing.
TEST(Crc, LengthsOf4GiBAndMoreAreTakenInFull)
{
    const child_result child =
        run_in_child([] { ZR_util_CRC_calc(guarded_bytes(16).data(), UINT64_C(1) << 32); });
    EXPECT_FALSE(child.succeeded());
}

TEST(CrcTable, IsBuiltByTheFirstCalculation)
{
    const library_copy fresh;
    EXPECT_EQ(fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc)("123456789", 9), 0xCBF43926u);
}

TEST(CrcTable, BuiltBeforehandGivesTheSameResult)
{
    const library_copy fresh;
    fresh.find("_ZR_make_crc_table", _ZR_make_crc_table)();
    EXPECT_EQ(fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc)("123456789", 9), 0xCBF43926u);
}

TEST(CrcTable, IsReadyAfterAFirstCalculationOverNothing)
{
    const library_copy fresh;
    const auto calculate = fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc);
    EXPECT_EQ(calculate(nullptr, 0), 0u);
    EXPECT_EQ(calculate("123456789", 9), 0xCBF43926u);
}

TEST(CrcTable, CanBeRebuiltAtAnyTime)
{
    _ZR_make_crc_table();
    _ZR_make_crc_table();
    EXPECT_EQ(crc("123456789"), 0xCBF43926u);
}

TEST(CrcTable, IsBuiltByManyFirstCallsAtOnce)
{
    constexpr int thread_count = 8;
    for (int round = 0; round < 20; ++round) {
        const library_copy fresh;
        const auto calculate = fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc);
        std::atomic<int> waiting{thread_count};
        std::array<uint64_t, thread_count> results = {};
        std::vector<std::thread> threads;
        for (uint64_t &result : results)
            threads.emplace_back([&] {
                --waiting;
                while (waiting.load() > 0)
                    std::this_thread::yield();
                result = calculate("123456789", 9);
            });
        for (std::thread &thread : threads)
            thread.join();
        for (const uint64_t result : results)
            EXPECT_EQ(result, 0xCBF43926u);
    }
}

TEST(CrcTable, CanBeRebuiltWhileOthersCalculate)
{
    std::thread builder([] {
        for (int i = 0; i < 200; ++i)
            _ZR_make_crc_table();
    });
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(crc("123456789"), 0xCBF43926u);
    builder.join();
}

// ---- MD5

namespace {

constexpr BYTE FILL = 0xA5;

// A record in which every byte is FILL.
ZT_MD5_CONTEXT filled_record()
{
    ZT_MD5_CONTEXT context;
    memset(&context, FILL, sizeof context);
    return context;
}

template <size_t size> bool is_filled(const BYTE (&bytes)[size], size_t from = 0)
{
    for (size_t i = from; i < size; ++i)
        if (bytes[i] != FILL)
            return false;
    return true;
}

std::array<UINT, 4> state_of(const ZT_MD5_CONTEXT &context)
{
    return {context.state[0], context.state[1], context.state[2], context.state[3]};
}

// The chaining values after the whole blocks of a message.
std::array<UINT, 4> expected_state(const BYTE *bytes, size_t count)
{
    MD5_CTX context;
    MD5_Init(&context);
    MD5_Update(&context, bytes, count / 64 * 64);
    return {context.A, context.B, context.C, context.D};
}

}  // namespace

TEST(Md5, GivesThePublishedDigests)
{
    EXPECT_EQ(hexadecimal_digest(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(hexadecimal_digest("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(hexadecimal_digest("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(hexadecimal_digest("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(hexadecimal_digest("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(hexadecimal_digest("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(hexadecimal_digest("1234567890123456789012345678901234567890"
                                 "1234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, AgreesWithLibcryptoForEveryLengthAndAlignment)
{
    constexpr size_t longest = 1024;
    std::vector<BYTE> bytes = patterned_bytes(longest + 16);
    for (size_t alignment = 0; alignment < 16; ++alignment)
        for (size_t length = 0; length <= longest; ++length) {
            const BYTE *start = bytes.data() + alignment;
            ASSERT_EQ(digest(start, length), expected_digest(start, length)) << length << " at " << alignment;
        }
}

TEST(Md5, ReadsNothingBehindTheInput)
{
    for (size_t length = 1; length <= 200; ++length) {
        const std::vector<BYTE> bytes = patterned_bytes(length);
        guarded_bytes guarded(bytes.data(), length);
        EXPECT_EQ(digest(guarded.data(), length), expected_digest(bytes.data(), length)) << length;
    }
}

TEST(Md5, OfAMessageInTwoPiecesIsThatOfTheWhole)
{
    const std::vector<BYTE> bytes = patterned_bytes(200);
    for (size_t length = 0; length <= bytes.size(); length += length < 135 ? 1 : 13) {
        const digest_bytes expected = expected_digest(bytes.data(), length);
        for (size_t split = 0; split <= length; ++split) {
            ZT_MD5_CONTEXT context;
            MD5Init(&context);
            MD5Update(&context, bytes.data(), static_cast<UINT>(split));
            MD5Update(&context, bytes.data() + split, static_cast<UINT>(length - split));
            MD5Final(&context);
            ASSERT_EQ(digest_of(context), expected) << length << " split at " << split;
        }
    }
}

TEST(Md5, OfAMessageInManyPiecesIsThatOfTheWhole)
{
    const std::vector<BYTE> bytes = patterned_bytes(5000);
    const digest_bytes expected = expected_digest(bytes.data(), bytes.size());
    for (const size_t piece : {1u, 2u, 3u, 7u, 55u, 56u, 63u, 64u, 65u, 127u, 128u, 129u, 1000u}) {
        ZT_MD5_CONTEXT context;
        MD5Init(&context);
        for (size_t position = 0; position < bytes.size(); position += piece) {
            MD5Update(&context, nullptr, 0);
            MD5Update(&context, bytes.data() + position,
                      static_cast<UINT>(std::min(piece, bytes.size() - position)));
        }
        MD5Update(&context, nullptr, 0);
        MD5Final(&context);
        EXPECT_EQ(digest_of(context), expected) << piece;
    }
}

// Byte by byte, "abc" in the buffer is copied behind itself again and again.
TEST(Md5, TakesInputThatLiesInTheRecordsOwnBuffer)
{
    constexpr UINT length = 40;
    std::string message = "abc";
    while (message.size() < 3 + length)
        message += message[message.size() - 3];
    ZT_MD5_CONTEXT context = filled_record();
    MD5Init(&context);
    MD5Update(&context, "abc", 3);
    MD5Update(&context, context.buffer, length);
    MD5Final(&context);
    EXPECT_EQ(digest_of(context),
              expected_digest(reinterpret_cast<const BYTE *>(message.data()), message.size()));
}

TEST(Md5, KeepsTwoDigestsApart)
{
    ZT_MD5_CONTEXT first;
    ZT_MD5_CONTEXT second;
    MD5Init(&first);
    MD5Update(&first, "ab", 2);
    MD5Init(&second);
    MD5Update(&second, "message ", 8);
    MD5Update(&first, "c", 1);
    MD5Final(&first);
    MD5Update(&second, "digest", 6);
    MD5Final(&second);
    EXPECT_EQ(hexadecimal(digest_of(first)), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(hexadecimal(digest_of(second)), "f96b697d7cb7938d525a2f31aaf161d0");
}

TEST(Md5, RunsOnSeveralThreadsWithARecordEach)
{
    const std::vector<BYTE> bytes = patterned_bytes(1000);
    const digest_bytes expected = expected_digest(bytes.data(), bytes.size());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round)
                EXPECT_EQ(digest(bytes.data(), bytes.size()), expected);
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(Md5Record, IsInTheStatedOrder)
{
    EXPECT_EQ(offsetof(ZT_MD5_CONTEXT, bit_count), 0u);
    EXPECT_EQ(offsetof(ZT_MD5_CONTEXT, state), 8u);
    EXPECT_EQ(offsetof(ZT_MD5_CONTEXT, buffer), 24u);
    EXPECT_EQ(offsetof(ZT_MD5_CONTEXT, digest), 88u);
    EXPECT_EQ(sizeof(ZT_MD5_CONTEXT), 104u);
}

TEST(Md5Record, AfterInitHoldsTheInitialStateAndLeavesBufferAndDigestAlone)
{
    ZT_MD5_CONTEXT context = filled_record();
    MD5Init(&context);
    EXPECT_EQ(context.bit_count[0], 0u);
    EXPECT_EQ(context.bit_count[1], 0u);
    EXPECT_EQ(state_of(context), (std::array<UINT, 4>{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476}));
    EXPECT_TRUE(is_filled(context.buffer));
    EXPECT_TRUE(is_filled(context.digest));
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
        ASSERT_TRUE(is_filled(context.digest));
        // Each place of the buffer holds the last byte that went there, or what it held before.
        for (size_t place = 0; place < 64; ++place) {
            const size_t rounds = (length + 63 - place) / 64;
            const BYTE expected = rounds == 0 ? FILL : bytes[(rounds - 1) * 64 + place];
            ASSERT_EQ(context.buffer[place], expected) << length << " bytes, place " << place;
        }
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
        for (size_t place = 0; place < 64; ++place) {
            const size_t rounds = (padded.size() + 63 - place) / 64;
            const BYTE expected = rounds == 0 ? FILL : padded[(rounds - 1) * 64 + place];
            ASSERT_EQ(context.buffer[place], expected) << length << " bytes, place " << place;
        }
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
    EXPECT_EQ(state_of(context), (std::array<UINT, 4>{reference.A, reference.B, reference.C, reference.D}));
    EXPECT_NE(hexadecimal(digest_of(context)), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Record, CountCarriesIntoTheHighWordAndWrapsAt2To64)
{
    ZT_MD5_CONTEXT context;
    MD5Init(&context);
    context.bit_count[0] = 0xFFFFFFF8;
    context.bit_count[1] = 5;
    MD5Update(&context, "a", 1);
    EXPECT_EQ(context.bit_count[0], 0u);
    EXPECT_EQ(context.bit_count[1], 6u);
    EXPECT_EQ(context.buffer[63], 'a');

    context.bit_count[0] = 0xFFFFFFF0;
    context.bit_count[1] = 0xFFFFFFFF;
    MD5Update(&context, "abc", 3);
    EXPECT_EQ(context.bit_count[0], 8u);
    EXPECT_EQ(context.bit_count[1], 0u);
}

TEST(Md5Record, CountBelowTheCarryStaysInTheLowWord)
{
    ZT_MD5_CONTEXT context;
    MD5Init(&context);
    context.bit_count[0] = 0xFFFFFFE8;
    MD5Update(&context, "ab", 2);
    EXPECT_EQ(context.bit_count[0], 0xFFFFFFF8u);
    EXPECT_EQ(context.bit_count[1], 0u);
}

TEST(Md5Record, LengthsOf2To29AndMoreCarryThroughTheirHighBits)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    constexpr size_t length = (size_t{1} << 29) + 5;
    void *pages = mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    ZT_MD5_CONTEXT context;
    MD5Init(&context);
    MD5Update(&context, "abc", 3);
    MD5Update(&context, pages, static_cast<UINT>(length));
    EXPECT_EQ(context.bit_count[0], 64u);
    EXPECT_EQ(context.bit_count[1], 1u);
    MD5Final(&context);

    MD5_CTX reference;
    digest_bytes expected;
    MD5_Init(&reference);
    MD5_Update(&reference, "abc", 3);
    MD5_Update(&reference, pages, length);
    MD5_Final(expected.data(), &reference);
    EXPECT_EQ(digest_of(context), expected);
    munmap(pages, length);
}
