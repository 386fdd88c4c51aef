// Which CRC kernels run on which processor: its answers are this test's (other_processor/cpuid.h). The
// numbers of bits are those of the processor manuals.

#include "foundation/util.h"
#include "foundation/util/checksums_crc_kernels.h"

#include <cpuid.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <string>
#include <vector>

namespace {

constexpr unsigned bit(unsigned number)
{
    return 1U << number;
}

struct feature {
    const char *name;
    unsigned number;
};

constexpr feature PCLMUL = {"PCLMULQDQ", 1};
constexpr feature SSE41 = {"SSE4.1", 19};
constexpr feature OSXSAVE = {"OSXSAVE", 27};
const std::vector<feature> OF_EBX_7 = {{"AVX512F", 16}, {"AVX512BW", 30}, {"AVX512VL", 31}};
const std::vector<feature> OF_ECX_7 = {{"AVX512_VBMI", 1}, {"VPCLMULQDQ", 10}};
const std::vector<feature> OF_REGISTERS = {
    {"SSE", 1}, {"AVX", 2}, {"masks", 5}, {"upper halves", 6}, {"upper sixteen", 7}};

struct processor {
    unsigned ecx_1 = bit(PCLMUL.number) | bit(SSE41.number) | bit(OSXSAVE.number);
    unsigned ebx_7 = bit(16) | bit(30) | bit(31);
    unsigned ecx_7 = bit(1) | bit(10);
    uint64_t kept_registers = bit(0) | bit(1) | bit(2) | bit(5) | bit(6) | bit(7);
    std::vector<std::string> questions;  // asked so far
};

processor at_hand;

using questions = std::vector<std::string>;

}  // namespace

void ask_processor(unsigned leaf, unsigned part, unsigned &eax, unsigned &ebx, unsigned &ecx, unsigned &edx)
{
    at_hand.questions.push_back("leaf " + std::to_string(leaf) + "." + std::to_string(part));
    eax = edx = 0;
    ebx = leaf == 7 ? at_hand.ebx_7 : 0;
    ecx = leaf == 7 ? at_hand.ecx_7 : at_hand.ecx_1;
}

uint64_t ask_system_what_it_keeps(unsigned control_register)
{
    at_hand.questions.push_back("XCR" + std::to_string(control_register));
    return at_hand.kept_registers;
}

TEST(CrcProcessors, ModernOneRunsBothFoldingKernels)
{
    at_hand = {};
    EXPECT_TRUE(has_avx512_folding());
    EXPECT_EQ(at_hand.questions, (questions{"leaf 1.0", "XCR0", "leaf 7.0"}));
    EXPECT_TRUE(has_pclmul_folding());
}

TEST(CrcProcessors, WideKernelWantsEachOfItsFeatures)
{
    for (const feature &missing : OF_EBX_7) {
        at_hand = {};
        at_hand.ebx_7 &= ~bit(missing.number);
        EXPECT_FALSE(has_avx512_folding()) << missing.name;
    }
    for (const feature &missing : OF_ECX_7) {
        at_hand = {};
        at_hand.ecx_7 &= ~bit(missing.number);
        EXPECT_FALSE(has_avx512_folding()) << missing.name;
    }
}

TEST(CrcProcessors, WideKernelWantsASystemThatKeepsAllOfItsRegisters)
{
    for (const feature &missing : OF_REGISTERS) {
        at_hand = {};
        at_hand.kept_registers &= ~bit(missing.number);
        EXPECT_FALSE(has_avx512_folding()) << missing.name;
        EXPECT_EQ(at_hand.questions, (questions{"leaf 1.0", "XCR0"})) << missing.name;
    }
}

// The system's answer is an instruction that an older processor does not know.
TEST(CrcProcessors, WhatTheFirstAnswerRulesOutIsNotAskedFor)
{
    for (const feature &missing : {PCLMUL, OSXSAVE}) {
        at_hand = {};
        at_hand.ecx_1 &= ~bit(missing.number);
        EXPECT_FALSE(has_avx512_folding()) << missing.name;
        EXPECT_EQ(at_hand.questions, questions{"leaf 1.0"}) << missing.name;
    }
}

TEST(CrcProcessors, NarrowKernelWantsItsTwoFeaturesAndNoMore)
{
    for (const feature &missing : {PCLMUL, SSE41}) {
        at_hand = {};
        at_hand.ecx_1 &= ~bit(missing.number);
        EXPECT_FALSE(has_pclmul_folding()) << missing.name;
    }
    at_hand = {};
    at_hand.ecx_1 &= ~bit(OSXSAVE.number);
    EXPECT_TRUE(has_pclmul_folding());
    EXPECT_EQ(at_hand.questions, questions{"leaf 1.0"});
}

TEST(CrcProcessors, OneThatCannotFoldIsAskedOnceAndCalculatesByTheTable)
{
    at_hand = {};
    at_hand.ecx_1 = 0;
    std::string text;
    for (int length = 0; length < 300; ++length, text += static_cast<char>('a' + length % 26)) {
        const auto *bytes = reinterpret_cast<const BYTE *>(text.data());
        EXPECT_EQ(ZR_util_CRC_calc(bytes, text.size()), crc32_z(0, bytes, text.size())) << length << " bytes";
    }
    EXPECT_EQ(at_hand.questions, (questions{"leaf 1.0", "leaf 1.0"}));
}
