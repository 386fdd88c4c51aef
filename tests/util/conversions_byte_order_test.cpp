// Byte order of 32-bit and 64-bit words.

#include "util/conversions_fixture.h"

#include <gtest/gtest.h>

namespace {

// Where each bit of the argument goes, one by one.
uint64_t expected_dword_swap(uint64_t value)
{
    uint64_t result = 0;
    for (int bit = 0; bit < 64; ++bit) {
        if ((value >> bit & 1) == 0)
            continue;
        if (bit >= 24)
            result |= UINT64_C(1) << (bit - 24);
        if (bit < 40)
            result |= UINT64_C(1) << (bit + 24);
        if (bit >= 16 && bit < 24)
            result |= UINT64_C(1) << (bit - 8);
        if (bit >= 8 && bit < 16)
            result |= UINT64_C(1) << (bit + 8);
    }
    return result;
}

uint64_t expected_qword_swap(uint64_t value)
{
    const uint64_t sign_fill = (value >> 63) != 0 ? UINT64_C(0xffffffff00000000) : 0;
    return expected_dword_swap(value) << 32 | expected_dword_swap(value >> 32 | sign_fill);
}

uint64_t qword_swap(uint64_t value)
{
    return static_cast<uint64_t>(mm_qword_swap(static_cast<int64_t>(value)));
}

template <typename Check> void for_many_words(Check check)
{
    for (int bit = 0; bit < 64; ++bit) {
        check(UINT64_C(1) << bit);
        check(~(UINT64_C(1) << bit));
        check((UINT64_C(1) << bit) - 1);
    }
    word_sequence words(3);
    for (int i = 0; i < 20000; ++i) {
        const uint64_t word = words.next();
        check(word);
        check(word >> (word & 63));
    }
}

}  // namespace

TEST(ByteOrder, LittleEndianWordsStayAsTheyAre)
{
    EXPECT_EQ(ii_dword_swap(UINT64_C(0x1122334455667788)), UINT64_C(0x1122334455667788));
    EXPECT_EQ(ii_qword_swap(INT64_C(0x1122334455667788)), INT64_C(0x1122334455667788));
    for_many_words([](uint64_t value) {
        ASSERT_EQ(ii_dword_swap(value), value);
        ASSERT_EQ(ii_qword_swap(static_cast<int64_t>(value)), static_cast<int64_t>(value));
    });
}

TEST(ByteOrder, BigEndianDwordsKeepTheirResidue)
{
    EXPECT_EQ(mm_dword_swap(0x12345678), UINT64_C(0x0012345678563412));
    EXPECT_EQ(mm_dword_swap(0xFF), UINT64_C(0xFF000000));
    EXPECT_EQ(mm_dword_swap(0xAABBCCDD), UINT64_C(0x00AABBCCDDCCBBAA));
    EXPECT_EQ(mm_dword_swap(0), 0u);
    for_many_words(
        [](uint64_t value) { ASSERT_EQ(mm_dword_swap(value), expected_dword_swap(value)) << value; });
}

TEST(ByteOrder, BigEndianDwordsBelow2To32AreReversedInTheLowHalfAndShiftedInTheHigh)
{
    for_many_words([](uint64_t value) {
        const uint32_t word = static_cast<uint32_t>(value);
        const uint64_t result = mm_dword_swap(word);
        ASSERT_EQ(static_cast<uint32_t>(result), __builtin_bswap32(word)) << word;
        ASSERT_EQ(result >> 32, word >> 8) << word;
    });
}

TEST(ByteOrder, BigEndianQwordsKeepTheResiduesOfBothHalves)
{
    EXPECT_EQ(qword_swap(0x12345678), UINT64_C(0x7856341200000000));
    EXPECT_EQ(qword_swap(UINT64_C(0x0102030405060708)), UINT64_C(0x0A07060704030201));
    EXPECT_EQ(qword_swap(UINT64_C(0x1122334400000000)), UINT64_C(0x2233663344332211));
    EXPECT_EQ(qword_swap(UINT64_C(0x8000000000000000)), UINT64_C(0xFF8000FFFFFFFF80));
    EXPECT_EQ(mm_qword_swap(-1), -1);
    EXPECT_EQ(mm_qword_swap(0), 0);
    for_many_words([](uint64_t value) { ASSERT_EQ(qword_swap(value), expected_qword_swap(value)) << value; });
}

TEST(ByteOrder, BigEndianQwordsBelow2To32AreReversed)
{
    for_many_words([](uint64_t value) {
        ASSERT_EQ(qword_swap(value & 0xffffffff), __builtin_bswap64(value & 0xffffffff)) << value;
    });
}
