// CRC-32: the table, and the choice of the kernel that computes.

#include "checksums_crc_kernels.h"

#include "foundation/util.h"

// All that is written here, in one page: most of what the table costs is to be given memory for it.
static struct alignas(4096) {
    // Entry n is what remains of the byte n after division by the polynomial; the upper 32 bits are zero.
    // Threads that meet an unbuilt table may build it together: all store the same values, and the flag is
    // set last. Accesses are atomic so that this is no data race; on this processor they are ordinary moves.
    uint64_t __crc_table[256];
    int32_t __crc_table_computed;

    // Null until a calculation has chosen; then the table is built too. All threads choose the same.
    const crc_kernel *chosen_kernel;
} crc;
static_assert(sizeof crc == 4096, "one page");

namespace {

bool runs_everywhere()
{
    return true;
}

}  // namespace

const crc_kernel crc_kernels[] = {
    {"avx512", has_avx512_folding, calculate_by_avx512},
    {"pclmul", has_pclmul_folding, calculate_by_pclmul},
    {"table", runs_everywhere, calculate_by_table},
};

// The plain definition: for a few bytes, and for processors that cannot fold.
uint64_t calculate_by_table(const BYTE *bytes, uint64_t length)
{
    uint64_t remainder = CRC_INITIAL;
    for (const BYTE *const end = bytes + length; bytes != end; ++bytes)
        remainder = (remainder >> 8) ^
                    __atomic_load_n(&crc.__crc_table[(remainder ^ *bytes) & 0xFF], __ATOMIC_RELAXED);
    return remainder ^ CRC_INITIAL;
}

namespace {

bool is_table_built()
{
    return __atomic_load_n(&crc.__crc_table_computed, __ATOMIC_ACQUIRE) != 0;
}

constexpr uint64_t remainder_of_byte(uint64_t byte)
{
    uint64_t remainder = byte;
    for (int bit = 0; bit < 8; ++bit)
        remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? CRC_POLYNOMIAL : 0);
    return remainder;
}

// Only the eight bytes of one bit are divided: the remainder of a sum is the sum of the remainders.
void fill_table()
{
    __atomic_store_n(&crc.__crc_table[0], 0, __ATOMIC_RELAXED);
    for (uint64_t bit = 1; bit < 256; bit *= 2) {
        const uint64_t of_bit = remainder_of_byte(bit);
        for (uint64_t rest = 0; rest < bit; ++rest) {
            const uint64_t of_rest = __atomic_load_n(&crc.__crc_table[rest], __ATOMIC_RELAXED);
            __atomic_store_n(&crc.__crc_table[bit + rest], of_bit ^ of_rest, __ATOMIC_RELAXED);
        }
    }
}

const crc_kernel *find_kernel()
{
    const crc_kernel *kernel = crc_kernels;
    while (!kernel->runs_here())
        ++kernel;
    return kernel;
}

// The first calculation builds the table, unless that is done, and asks for the processor's abilities, which
// takes some microseconds under a hypervisor. No later one writes anything.
[[gnu::noinline, gnu::cold]] uint64_t calculate_first(const BYTE *bytes, uint64_t length)
{
    if (!is_table_built())
        _ZR_make_crc_table();
    const crc_kernel *kernel = find_kernel();
    __atomic_store_n(&crc.chosen_kernel, kernel, __ATOMIC_RELEASE);
    return kernel->calculate(bytes, length);
}

}  // namespace

void _ZR_make_crc_table(void)
{
    fill_table();
    __atomic_store_n(&crc.__crc_table_computed, 1, __ATOMIC_RELEASE);
}

// Nothing is read for a length of 0, and the result is 0: the two additions of CRC_INITIAL cancel out.
uint64_t ZR_util_CRC_calc(const void *data, uint64_t length)
{
    const BYTE *bytes = static_cast<const BYTE *>(data);
    const crc_kernel *kernel = __atomic_load_n(&crc.chosen_kernel, __ATOMIC_ACQUIRE);
    if (kernel == nullptr)
        return calculate_first(bytes, length);
    return kernel->calculate(bytes, length);
}
