// MD5 digests beside libcrypto's.

#include "util/checksums_fixture.h"

#include "support/child_process.h"
#include "support/guarded_bytes.h"
#include "support/library_copy.h"
#include "support/read_only_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string hexadecimal_digest(const std::string &message)
{
    return hexadecimal(digest(message.data(), message.size()));
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

TEST(Md5, RunsOnSeveralThreadsWithARecordAndAMessageEach)
{
    std::atomic<size_t> threads_ready{0};
    std::vector<std::thread> threads;
    for (const size_t length : {55u, 64u, 1000u, 1001u})
        threads.emplace_back([&, length] {
            const std::vector<BYTE> bytes = patterned_bytes(length);
            const digest_bytes expected = expected_digest(bytes.data(), length);
            ++threads_ready;
            while (threads_ready < 4)
                std::this_thread::yield();
            for (int round = 0; round < 2000; ++round)
                ASSERT_EQ(digest(bytes.data(), length), expected) << length << " bytes";
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(Md5, KeepsNothingInTheLibrarysData)
{
    if (counts_coverage())
        GTEST_SKIP() << "the counters of a coverage build stand in the library's data";
    const library_copy fresh;
    const auto init = fresh.find("MD5Init", MD5Init);
    const auto update = fresh.find("MD5Update", MD5Update);
    const auto final = fresh.find("MD5Final", MD5Final);
    const std::vector<BYTE> bytes = patterned_bytes(200);
    expect_passes_in_child([&] {
        ASSERT_GT(make_data_read_only(reinterpret_cast<const void *>(init)), 0u);
        ZT_MD5_CONTEXT context;
        init(&context);
        update(&context, bytes.data(), 200);
        update(&context, context.buffer, 8);  // the 193rd byte and those behind it once more
        final(&context);
        std::vector<BYTE> message = bytes;
        message.insert(message.end(), bytes.begin() + 192, bytes.end());
        EXPECT_EQ(digest_of(context), expected_digest(message.data(), message.size()));
    });
}
