// MD5 over counts near their carries, set by hand, and over input that lies in the record itself.

#include "util/checksums_fixture.h"

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/guarded_bytes.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mman.h>

#include <vector>

namespace {

// Two records in the same middle of a message: ours, and libcrypto's as the reference.
struct records {
    ZT_MD5_CONTEXT ours;
    MD5_CTX reference;
};

// `bits` is the count so far; the bytes of an unfinished block come from a pattern.
records at_bit_count(uint64_t bits)
{
    const std::vector<BYTE> pattern = patterned_bytes(64);
    records both = {};
    MD5Init(&both.ours);
    both.ours.bit_count[0] = static_cast<UINT>(bits);
    both.ours.bit_count[1] = static_cast<UINT>(bits >> 32);
    memcpy(both.ours.buffer, pattern.data(), 64);
    MD5_Init(&both.reference);
    both.reference.Nl = static_cast<MD5_LONG>(bits);
    both.reference.Nh = static_cast<MD5_LONG>(bits >> 32);
    both.reference.num = static_cast<unsigned>(bits / 8 % 64);
    memcpy(both.reference.data, pattern.data(), 64);
    return both;
}

uint64_t bit_count(const ZT_MD5_CONTEXT &context)
{
    return static_cast<uint64_t>(context.bit_count[1]) << 32 | context.bit_count[0];
}

void expect_agreement(records both, const void *input, size_t length)
{
    const uint64_t bits = bit_count(both.ours);
    MD5Update(&both.ours, input, static_cast<UINT>(length));
    MD5_Update(&both.reference, input, length);
    EXPECT_EQ(bit_count(both.ours), bits + 8 * uint64_t{length})
        << bits << " bits and " << length << " bytes";
    EXPECT_EQ(state_of(both.ours), state_of(both.reference)) << bits << " bits and " << length << " bytes";
    MD5Final(&both.ours);
    digest_bytes expected;
    MD5_Final(expected.data(), &both.reference);
    EXPECT_EQ(digest_of(both.ours), expected) << bits << " bits and " << length << " bytes";
}

}  // namespace

TEST(Md5Count, CarriesIntoTheHighWordAndWrapsAt2To64)
{
    const std::vector<BYTE> bytes = patterned_bytes(1000);
    for (const uint64_t high : {0u, 5u, 0x7FFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu})
        for (const uint64_t low :
             {0u, 0x7FFFFFF8u, 0x80000000u, 0xFFFFFE00u, 0xFFFFFFE8u, 0xFFFFFFF0u, 0xFFFFFFF8u, 0xFFFFFFFFu})
            for (const size_t length : {0u, 1u, 2u, 3u, 55u, 56u, 63u, 64u, 65u, 1000u})
                expect_agreement(at_bit_count(high << 32 | low), bytes.data(), length);
}

// The padding counts as well: from 1 to 64 bytes.
TEST(Md5Count, CarriesInTheFinalStepToo)
{
    for (const uint64_t bits : {UINT64_C(0xFFFFFFC0), UINT64_C(0xFFFFFFF8), UINT64_C(0x7FFFFFFFF),
                                UINT64_C(0xFFFFFFFFFFFFFFC0), UINT64_C(0xFFFFFFFFFFFFFFF8)}) {
        ZT_MD5_CONTEXT context = at_bit_count(bits).ours;
        MD5Final(&context);
        const uint64_t position = bits / 8 % 64;
        const uint64_t padding_bytes = position < 56 ? 56 - position : 120 - position;
        EXPECT_EQ(bit_count(context), bits + 8 * padding_bytes) << bits;
    }
}

// The low word wraps, the length has a bit above the 29th, and the high word wraps by both.
TEST(Md5Count, TakesLengthsFrom2To29OnIntoTheHighWord)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    constexpr size_t length = (size_t{1} << 29) + 5;
    void *pages = mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    expect_agreement(at_bit_count(UINT64_C(0xFFFFFFFEFFFFFFE8)), pages, length);
    munmap(pages, length);
}

// Of so many bytes only the first 128 are there; the record, which two processes share, shows what was done.
TEST(Md5Count, TakesLengthsFrom2To31OnAsUnsigned)
{
    const std::vector<BYTE> bytes = patterned_bytes(128);
    guarded_bytes input(bytes.data(), bytes.size());
    void *shared =
        mmap(nullptr, sizeof(ZT_MD5_CONTEXT), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    ZT_MD5_CONTEXT *const context = static_cast<ZT_MD5_CONTEXT *>(shared);
    MD5_CTX reference;
    MD5_Init(&reference);
    MD5_Update(&reference, bytes.data(), bytes.size());
    for (const UINT length : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        MD5Init(context);
        const child_result child = run_in_child([&] {
            signal(SIGSEGV, SIG_DFL);  // also where a sanitizer would report it
            MD5Update(context, input.data(), length);
        });
        EXPECT_TRUE(!child.has_exited && child.status == SIGSEGV) << child.describe();
        EXPECT_EQ(bit_count(*context), 8 * uint64_t{length}) << length;
        EXPECT_EQ(state_of(*context), state_of(reference)) << length;
    }
    munmap(shared, sizeof(ZT_MD5_CONTEXT));
}

// Copied byte by byte, so that a byte stored by this very call may be read by it again.
TEST(Md5, TakesInputThatLiesAnywhereInTheRecordsOwnBuffer)
{
    const std::vector<BYTE> fed = patterned_bytes(64);
    for (size_t position = 0; position < 64; ++position)
        for (size_t offset = 0; offset < 64; ++offset)
            for (const size_t length : {size_t{1}, (64 - offset + 1) / 2, 64 - offset}) {
                ZT_MD5_CONTEXT context;
                MD5Init(&context);
                memset(context.buffer, 0xA5, sizeof context.buffer);
                MD5Update(&context, fed.data(), static_cast<UINT>(position));
                std::vector<BYTE> buffer(context.buffer, context.buffer + 64);
                std::vector<BYTE> message(fed.begin(), fed.begin() + static_cast<ptrdiff_t>(position));
                for (size_t i = 0; i < length; ++i) {
                    const BYTE byte = buffer[offset + i];
                    buffer[message.size() % 64] = byte;
                    message.push_back(byte);
                }
                MD5Update(&context, context.buffer + offset, static_cast<UINT>(length));
                ASSERT_EQ(std::vector<BYTE>(context.buffer, context.buffer + 64), buffer)
                    << length << " bytes from " << offset << " to " << position;
                MD5Final(&context);
                ASSERT_EQ(digest_of(context), expected_digest(message.data(), message.size()))
                    << length << " bytes from " << offset << " to " << position;
            }
}
