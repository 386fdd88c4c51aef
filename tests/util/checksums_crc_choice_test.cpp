// Which CRC kernel is taken on which processor, for which length and where. The calls under test run one
// instruction at a time: what they enter is seen, and what they ask the processor is answered in its place.

#include "foundation/util.h"
#include "foundation/util/checksums_crc_kernels.h"

#include "support/child_process.h"
#include "support/guarded_bytes.h"
#include "support/library_copy.h"
#include "support/sanitizers.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cpuid.h>
#include <signal.h>
#include <string.h>
#include <sys/ucontext.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iterator>
#include <string>
#include <vector>

namespace {

// ---- Processors

// What the library asks for, bit by bit.
struct processor {
    UINT ecx_of_1, ebx_of_7, ecx_of_7;
    UINT kept_state;  // the registers that the system keeps for each thread
};

processor operator~(const processor &a)
{
    return {~a.ecx_of_1, ~a.ebx_of_7, ~a.ecx_of_7, ~a.kept_state};
}

processor operator&(const processor &a, const processor &b)
{
    return {a.ecx_of_1 & b.ecx_of_1, a.ebx_of_7 & b.ebx_of_7, a.ecx_of_7 & b.ecx_of_7,
            a.kept_state & b.kept_state};
}

constexpr processor NOTHING = {};
const processor EVERYTHING = ~NOTHING;

struct feature {
    const char *name;
    processor bits;
};

// The numbers of the bits are those of the processor's manual.
constexpr feature NEEDED_BY_PCLMUL[] = {
    {"PCLMULQDQ", {1u << 1, 0, 0, 0}},
    {"SSE4.1", {1u << 19, 0, 0, 0}},
};
constexpr feature NEEDED_BY_AVX512[] = {
    {"PCLMULQDQ", {1u << 1, 0, 0, 0}},
    {"OSXSAVE", {1u << 27, 0, 0, 0}},
    {"AVX512F", {0, 1u << 16, 0, 0}},
    {"AVX512BW", {0, 1u << 30, 0, 0}},
    {"AVX512VL", {0, 1u << 31, 0, 0}},
    {"AVX512_VBMI", {0, 0, 1u << 1, 0}},
    {"VPCLMULQDQ", {0, 0, 1u << 10, 0}},
    {"the lower halves of XMM and YMM registers kept", {0, 0, 0, 1u << 1}},
    {"the upper halves of YMM registers kept", {0, 0, 0, 1u << 2}},
    {"mask registers kept", {0, 0, 0, 1u << 5}},
    {"the upper halves of the first ZMM registers kept", {0, 0, 0, 1u << 6}},
    {"the other ZMM registers kept", {0, 0, 0, 1u << 7}},
};

template <size_t count> processor with_only(const feature (&features)[count])
{
    processor missing = EVERYTHING;
    for (const feature &each : features)
        missing = missing & ~each.bits;
    return ~missing;
}

processor this_processor()
{
    processor it = {};
    UINT eax, edx;
    UINT ebx_of_1;
    __get_cpuid(1, &eax, &ebx_of_1, &it.ecx_of_1, &edx);
    __get_cpuid_count(7, 0, &eax, &it.ebx_of_7, &it.ecx_of_7, &edx);
    if ((it.ecx_of_1 & bit_OSXSAVE) != 0)
        __asm__("xgetbv" : "=a"(it.kept_state), "=d"(edx) : "c"(0));
    return it;
}

// ---- One instruction at a time

constexpr unsigned MOST_ENTRIES = 8;

struct observations {
    uint64_t instructions, questions, questions_about_state;
    unsigned entries;
    const crc_kernel *entered[MOST_ENTRIES];
};

processor pretended;
observations observed;
void (*in_between)();  // null, or what else runs after every instruction

// Whether the next instruction is a question. Then it is answered and passed over.
bool answer_question(greg_t *registers)
{
    const BYTE *const next = reinterpret_cast<const BYTE *>(registers[REG_RIP]);
    const bool is_cpuid = memcmp(next, "\x0F\xA2", 2) == 0;
    const bool is_xgetbv = memcmp(next, "\x0F\x01\xD0", 3) == 0;
    if (is_cpuid) {
        const UINT leaf = static_cast<UINT>(registers[REG_RAX]);
        const bool is_leaf_7 = leaf == 7 && static_cast<UINT>(registers[REG_RCX]) == 0;
        registers[REG_RAX] = registers[REG_RDX] = 0;
        registers[REG_RBX] = is_leaf_7 ? pretended.ebx_of_7 : 0;
        registers[REG_RCX] = leaf == 1 ? pretended.ecx_of_1 : is_leaf_7 ? pretended.ecx_of_7 : 0;
        registers[REG_RIP] += 2;
        ++observed.questions;
    } else if (is_xgetbv) {
        registers[REG_RAX] = static_cast<UINT>(registers[REG_RCX]) == 0 ? pretended.kept_state : 0;
        registers[REG_RDX] = 0;
        registers[REG_RIP] += 3;
        ++observed.questions_about_state;
    }
    return is_cpuid || is_xgetbv;
}

// Handles the signal of a breakpoint, which begins or ends this, and that after every instruction between
// two.
void between_instructions(int, siginfo_t *info, void *context)
{
    constexpr greg_t trap_flag = 0x100;
    greg_t *const registers = static_cast<ucontext_t *>(context)->uc_mcontext.gregs;
    if (info->si_code == SI_KERNEL) {
        registers[REG_EFL] ^= trap_flag;
        return;
    }
    ++observed.instructions;
    for (const crc_kernel &kernel : crc_kernels)
        if (registers[REG_RIP] == reinterpret_cast<greg_t>(kernel.calculate) &&
            observed.entries < MOST_ENTRIES)
            observed.entered[observed.entries++] = &kernel;
    while (answer_question(registers))
        continue;
    if (in_between != nullptr)
        in_between();
}

template <typename Call>
observations observe(const processor &pretend, Call call, void (*and_between)() = nullptr)
{
    pretended = pretend;
    in_between = and_between;
    observed = {};
    struct sigaction action = {}, before = {};
    action.sa_sigaction = between_instructions;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGTRAP, &action, &before);
    __asm__ volatile("int3" : : : "memory");
    call();
    __asm__ volatile("int3" : : : "memory");
    sigaction(SIGTRAP, &before, nullptr);
    return observed;
}

class CrcChoice : public testing::Test {
protected:
    void SetUp() override
    {
        if (BUILT_FOR_THREAD_SANITIZER)
            GTEST_SKIP() << "the thread sanitizer does not get on with a signal after every instruction";
        if (observe(EVERYTHING, [] { __asm__ volatile("nop"); }).instructions == 0)
            GTEST_SKIP() << "the processor, emulated as it is here, does not stop after an instruction";
        _ZR_make_crc_table();
    }
};

bool runs_on(const processor &pretend, bool (*runs_here)())
{
    bool result = false;
    observe(pretend, [&] { result = runs_here(); });
    return result;
}

using names = std::vector<std::string>;

names kernels_entered(const observations &seen)
{
    names entered;
    for (unsigned i = 0; i < seen.entries; ++i)
        entered.push_back(seen.entered[i]->name);
    return entered;
}

names kernels_for(uint64_t (*calculate)(const BYTE *, uint64_t), const BYTE *bytes, uint64_t length)
{
    return kernels_entered(observe(this_processor(), [&] { calculate(bytes, length); }));
}

}  // namespace

TEST_F(CrcChoice, EachKernelNeedsItsFeaturesAndNoOthers)
{
    EXPECT_TRUE(runs_on(EVERYTHING, has_pclmul_folding));
    EXPECT_TRUE(runs_on(EVERYTHING, has_avx512_folding));
    EXPECT_TRUE(runs_on(with_only(NEEDED_BY_PCLMUL), has_pclmul_folding));
    EXPECT_TRUE(runs_on(with_only(NEEDED_BY_AVX512), has_avx512_folding));
    for (const feature &each : NEEDED_BY_PCLMUL)
        EXPECT_FALSE(runs_on(~each.bits, has_pclmul_folding)) << "all but " << each.name;
    for (const feature &each : NEEDED_BY_AVX512)
        EXPECT_FALSE(runs_on(~each.bits, has_avx512_folding)) << "all but " << each.name;
    EXPECT_FALSE(runs_on(NOTHING, has_pclmul_folding));
    EXPECT_FALSE(runs_on(NOTHING, has_avx512_folding));
}

// XGETBV is no instruction of a processor whose system does not say so.
TEST_F(CrcChoice, AsksWhatTheSystemKeepsOnlyWhereTheProcessorAnswers)
{
    EXPECT_EQ(observe(EVERYTHING, has_avx512_folding).questions_about_state, 1u);
    EXPECT_EQ(observe(~processor{bit_OSXSAVE, 0, 0, 0}, has_avx512_folding).questions_about_state, 0u);
}

TEST_F(CrcChoice, TakesTheFirstKernelThatTheProcessorRunsAndAsksNoSecondTime)
{
    const std::vector<BYTE> bytes(1000, 'x');
    const uint64_t expected = crc32_z(0, bytes.data(), bytes.size());
    const struct {
        names kernel;
        bool runs_here;
        processor pretend;
    } cases[] = {
        {{"avx512"}, has_avx512_folding(), this_processor()},
        {{"pclmul"}, has_pclmul_folding(), this_processor() & ~processor{0, bit_AVX512F, 0, 0}},
        {{"table"}, true, NOTHING},
    };
    for (const auto &each : cases)
        expect_passes_in_child([&] {
            if (!each.runs_here)
                return;
            SCOPED_TRACE(each.kernel[0]);
            uint64_t crc = 0;
            const auto calculate = [&] {
                crc = ZR_util_CRC_calc(bytes.data(), bytes.size());
            };
            const observations first = observe(each.pretend, calculate);
            EXPECT_EQ(crc, expected);
            EXPECT_EQ(kernels_entered(first), each.kernel);
            EXPECT_GT(first.questions, 0u);
            const observations second = observe(each.pretend, calculate);
            EXPECT_EQ(crc, expected);
            EXPECT_EQ(kernels_entered(second), each.kernel);
            EXPECT_EQ(second.questions + second.questions_about_state, 0u);
        });
}

TEST_F(CrcChoice, LeavesLessThanSixteenBytesToTheTable)
{
    alignas(64) const BYTE bytes[64] = {};  // within a page, wherever the stack lies
    for (const crc_kernel &kernel : crc_kernels) {
        if (!kernel.runs_here() || kernel.calculate == calculate_by_table)
            continue;
        for (const uint64_t length : {0, 1, 15})
            EXPECT_EQ(kernels_for(kernel.calculate, bytes, length), (names{kernel.name, "table"})) << length;
        EXPECT_EQ(kernels_for(kernel.calculate, bytes, 16), (names{kernel.name}));
    }
}

// Where the 64 bytes are not all in the page, those that the mask leaves out cost fifty times as much.
TEST_F(CrcChoice, LeavesPartsOfABlockAtTheEndOfAPageToTheNarrowerKernel)
{
    if (!has_avx512_folding())
        GTEST_SKIP() << "this machine cannot run the kernel avx512";
    guarded_bytes page(4096);
    for (const uint64_t length : {16, 17, 63}) {
        EXPECT_EQ(kernels_for(calculate_by_avx512, page.end() - 64, length), (names{"avx512"})) << length;
        EXPECT_EQ(kernels_for(calculate_by_avx512, page.end() - 63, length), (names{"avx512", "pclmul"}))
            << length;
        EXPECT_EQ(kernels_for(calculate_by_avx512, page.end() - 4096, length), (names{"avx512"})) << length;
    }
    EXPECT_EQ(kernels_for(calculate_by_avx512, page.end() - 64, 64), (names{"avx512"}));
}

// Building takes more than an instruction for each of 256 entries.
TEST_F(CrcChoice, TakesATableThatIsBuiltAsItIs)
{
    const auto instructions_of_first_calculation = [](bool is_built_before) {
        const library_copy fresh;
        const auto calculate = fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc);
        if (is_built_before)
            fresh.find("_ZR_make_crc_table", _ZR_make_crc_table)();
        return observe(NOTHING, [&] { calculate("", 0); }).instructions;
    };
    EXPECT_GT(instructions_of_first_calculation(false), instructions_of_first_calculation(true) + 256);
}

// ---- Several threads, of which one stands still

namespace {

uint64_t (*calculate_elsewhere)(const void *, uint64_t);
unsigned calculations, wrong_calculations;

void calculate_once_more()
{
    ++calculations;
    wrong_calculations += calculate_elsewhere("123456789", 9) != 0xCBF43926;
}

// In a process of its own, so that the next one again finds what the interrupted call has done and no more.
void calculate_as_a_second_thread()
{
    if (observed.instructions % 16 != 0)
        return;
    const pid_t child = fork();
    if (child == 0)
        _exit(calculate_elsewhere("123456789", 9) == 0xCBF43926 ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    ++calculations;
    wrong_calculations += status != 0;
}

}  // namespace

TEST_F(CrcChoice, AThreadThatComesAmidTheFirstCalculationGetsTheSameResult)
{
    const library_copy fresh;
    const auto calculate = fresh.find("ZR_util_CRC_calc", ZR_util_CRC_calc);
    calculate_elsewhere = calculate;
    calculations = wrong_calculations = 0;
    uint64_t crc = 0;
    observe(
        this_processor(), [&] { crc = calculate("123456789", 9); }, calculate_as_a_second_thread);
    EXPECT_EQ(crc, 0xCBF43926u);
    EXPECT_GT(calculations, 16u);
    EXPECT_EQ(wrong_calculations, 0u) << "of " << calculations;
}

TEST_F(CrcChoice, AThreadThatComesAmidARebuildingGetsTheSameResult)
{
    calculate_elsewhere = ZR_util_CRC_calc;
    calculate_elsewhere("", 0);
    calculations = wrong_calculations = 0;
    observe(this_processor(), _ZR_make_crc_table, calculate_once_more);
    EXPECT_GT(calculations, 256u);
    EXPECT_EQ(wrong_calculations, 0u) << "of " << calculations;
}
