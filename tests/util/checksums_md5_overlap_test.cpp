// MD5 of input that lies in the record itself, against the definition carried out byte by byte.

#include "foundation/util.h"

#include "support/child_process.h"

#include <gtest/gtest.h>

#define OPENSSL_SUPPRESS_DEPRECATED  // one block can be compressed only through the old interface
#include <openssl/md5.h>

#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

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

UINT add_to_count(ZT_MD5_CONTEXT &record, UINT length)
{
    const UINT index = record.bit_count[0] / 8 % 64;
    const uint64_t bits = (uint64_t{record.bit_count[1]} << 32 | record.bit_count[0]) + uint64_t{length} * 8;
    record.bit_count[0] = static_cast<UINT>(bits);
    record.bit_count[1] = static_cast<UINT>(bits >> 32);
    return index;
}

// Each byte is read when its turn comes.
void feed(ZT_MD5_CONTEXT &record, UINT index, const BYTE *input, UINT length)
{
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
                const UINT index = add_to_count(expected.record, length);
                feed(expected.record, index, expected.bytes() + begin, length);
                MD5Update(&actual.record, actual.bytes() + begin, length);
                ASSERT_EQ(memcmp(&actual, &expected, sizeof actual), 0)
                    << length << " bytes from " << static_cast<int>(begin) - 104
                    << " behind the record's begin, " << bytes_in_buffer << " in the buffer before";
            }
}

// The input begins in front of the record and would reach 2 GiB beyond it; but there the memory ends. What
// has been done until then shows in the record, which lies in memory that two processes share.
TEST(Md5Overlap, InputOf2GiBAndMoreIsReadByteByByteToo)
{
    const size_t page_bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *const pages =
        mmap(nullptr, 2 * page_bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    BYTE *const end = static_cast<BYTE *>(pages) + page_bytes;
    ASSERT_EQ(mprotect(end, page_bytes, PROT_NONE), 0);
    surroundings *const actual = reinterpret_cast<surroundings *>(end - sizeof(surroundings));
    for (const UINT length : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        surroundings expected = *actual = random_surroundings(37);
        const UINT index = add_to_count(expected.record, length);
        feed(expected.record, index, expected.bytes() + 64, sizeof expected - 64);
        const child_result child = run_in_child([&] {
            signal(SIGSEGV, SIG_DFL);  // also where a sanitizer would report it
            MD5Update(&actual->record, actual->bytes() + 64, length);
        });
        EXPECT_TRUE(!child.has_exited && child.status == SIGSEGV) << child.describe();
        EXPECT_EQ(memcmp(actual, &expected, sizeof expected), 0) << length << " bytes";
    }
    munmap(pages, 2 * page_bytes);
}
