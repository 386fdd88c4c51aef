// Every CRC kernel that this machine can run, against zlib and against the plain one. The kernels are private
// to the library, so their sources are compiled into this program.

#include "foundation/util.h"
#include "foundation/util/checksums_crc_folding.h"

#include "support/build_facts.h"
#include "support/library_copy.h"
#include "support/repeated_memory.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <new>
#include <ostream>
#include <random>
#include <string>
#include <vector>

void PrintTo(const crc_kernel &kernel, std::ostream *out)
{
    *out << kernel.name;
}

namespace {

constexpr uint64_t LONGEST = 2200;  // several rounds of the widest kernel's loop, and every way to begin it

std::vector<BYTE> random_bytes(size_t count)
{
    std::mt19937 generator(static_cast<unsigned>(count));
    std::vector<BYTE> bytes(count);
    for (BYTE &byte : bytes)
        byte = static_cast<BYTE>(generator() >> 24);
    return bytes;
}

uint64_t expected_crc(const BYTE *bytes, uint64_t length)
{
    return crc32_z(0, bytes, length);
}

// Accessible memory with an inaccessible page in front of it and one behind it.
class bytes_between_guards {
public:
    bytes_between_guards()
    {
        void *pages = mmap(nullptr, size + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED ||
            mprotect(static_cast<BYTE *>(pages) + page, size, PROT_READ | PROT_WRITE) != 0)
            throw std::bad_alloc();
        begin = static_cast<BYTE *>(pages) + page;
        const std::vector<BYTE> content = random_bytes(size);
        std::copy(content.begin(), content.end(), begin);
    }
    ~bytes_between_guards() { munmap(begin - page, size + 2 * page); }
    bytes_between_guards(const bytes_between_guards &) = delete;
    bytes_between_guards &operator=(const bytes_between_guards &) = delete;

    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t size = page * (1 + LONGEST / page);
    BYTE *begin;
    BYTE *end() const { return begin + size; }
};

class CrcKernel : public testing::TestWithParam<crc_kernel> {
protected:
    void SetUp() override
    {
        _ZR_make_crc_table();
        if (!GetParam().runs_here())
            GTEST_SKIP() << "this machine cannot run the kernel " << GetParam().name;
    }
    static uint64_t calculate(const BYTE *bytes, uint64_t length)
    {
        return GetParam().calculate(bytes, length);
    }
};

INSTANTIATE_TEST_SUITE_P(Each, CrcKernel, testing::ValuesIn(crc_kernels),
                         [](const auto &kernel) { return std::string(kernel.param.name); });

}  // namespace

TEST(CrcKernels, LastOneRunsOnEveryProcessor)
{
    EXPECT_TRUE(std::end(crc_kernels)[-1].runs_here());
    EXPECT_EQ(std::end(crc_kernels)[-1].calculate, calculate_by_table);
}

TEST(CrcKernels, AWiderOneRunsOnlyWhereTheNarrowerOneDoes)
{
    EXPECT_LE(has_avx512_folding(), has_pclmul_folding());
}

TEST_P(CrcKernel, GivesThePublishedCheckValue)
{
    EXPECT_EQ(calculate(reinterpret_cast<const BYTE *>("123456789"), 9), 0xCBF43926u);
}

TEST_P(CrcKernel, AgreesWithZlibForEveryLengthAndAlignment)
{
    const std::vector<BYTE> bytes = random_bytes(64 + LONGEST + 64);
    const BYTE *line = bytes.data() + (64 - reinterpret_cast<uintptr_t>(bytes.data()) % 64) % 64;
    for (uint64_t alignment = 0; alignment < 64; ++alignment)
        for (uint64_t length = 0; length <= LONGEST; ++length)
            ASSERT_EQ(calculate(line + alignment, length), expected_crc(line + alignment, length))
                << length << " bytes, " << alignment << " behind the begin of a cache line";
}

TEST_P(CrcKernel, ReadsNothingInFrontOfTheBufferNorBehindIt)
{
    const bytes_between_guards bytes;
    for (uint64_t length = 0; length <= LONGEST; ++length) {
        ASSERT_EQ(calculate(bytes.begin, length), expected_crc(bytes.begin, length))
            << length << " at the begin";
        const BYTE *at_the_end = bytes.end() - length;
        ASSERT_EQ(calculate(at_the_end, length), expected_crc(at_the_end, length)) << length << " at the end";
    }
}

TEST_P(CrcKernel, AgreesWithThePlainOneForLongBuffers)
{
    const std::vector<BYTE> bytes = random_bytes(1 << 20);
    std::mt19937 generator(32);
    for (int i = 0; i < 50; ++i) {
        const uint64_t begin = generator() % bytes.size();
        const uint64_t length = generator() % (bytes.size() - begin + 1);
        ASSERT_EQ(calculate(&bytes[begin], length), calculate_by_table(&bytes[begin], length))
            << length << " bytes from " << begin;
    }
}

// More than 2^32 bytes, of which one piece is repeated: its CRC, combined with itself, is that of all.
TEST_P(CrcKernel, TakesLengthsAbove4GiBInFull)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    if (GetParam().calculate == calculate_by_table)
        GTEST_SKIP() << "it would take ten seconds";
    constexpr uint64_t piece_bytes = repeated_memory::PIECE_BYTES;
    constexpr uint64_t length = (UINT64_C(1) << 32) + 100;
    repeated_memory memory(length);
    const BYTE *const bytes = reinterpret_cast<const BYTE *>(memory.text());
    const std::vector<BYTE> piece = random_bytes(piece_bytes);
    std::copy(piece.begin(), piece.end(), memory.text());
    const uLong of_piece = expected_crc(bytes, piece_bytes);
    uLong expected = 0;
    for (uint64_t i = 0; i < length / piece_bytes; ++i)
        expected = crc32_combine(expected, of_piece, piece_bytes);
    constexpr uint64_t rest = length % piece_bytes;
    expected = crc32_combine(expected, expected_crc(bytes, rest), rest);
    EXPECT_EQ(calculate(bytes, length), expected);
}

// The constants of V. Gopal and others, Fast CRC Computation for Generic Polynomials Using PCLMULQDQ, 2009.
TEST(CrcFolding, DerivesTheConstantsThatWerePublished)
{
    EXPECT_EQ(over<64>.first_half, 0x154442bd4u);
    EXPECT_EQ(over<64>.second_half, 0x1c6e41596u);
    EXPECT_EQ(over<16>.first_half, 0x1751997d0u);
    EXPECT_EQ(over<16>.second_half, 0x0ccaa009eu);
    EXPECT_EQ(multiplier(96), 0x163cd6124u);
    EXPECT_EQ(POLYNOMIAL_33_BITS, 0x1db710641u);
    // Published is the whole part of x^64 / P, which is the first 33 coefficients of that of x^95 / P.
    EXPECT_EQ(quotient_of_x95() & 0x1ffffffff, 0x1f7011641u);
}

// A first calculation may differ from the later ones in the kernel it takes, never in the result.
TEST(CrcKernels, FirstAndLaterCalculationsAgree)
{
    const std::vector<BYTE> bytes = random_bytes(5000);
    for (const uint64_t length : {0, 1, 15, 16, 63, 64, 1023, 1024, 5000}) {
        const library_copy fresh;
        const auto calculate_crc = fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc);
        for (int call = 1; call <= 3; ++call)
            EXPECT_EQ(calculate_crc(bytes.data(), length), expected_crc(bytes.data(), length))
                << length << " bytes, call " << call;
    }
}
