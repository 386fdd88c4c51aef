// Resolutions of any value in any unit, and words of either byte order.

#include "foundation/util.h"

#include "fuzz/target.h"

namespace {

// Cut off toward zero; out of range as the processor converts.
uint64_t whole_number(double value)
{
    if (value >= 18446744073709551616.0)
        return 0;
    if (value < -9223372036854775808.0)
        return UINT64_C(1) << 63;
    return value < 0 ? static_cast<uint64_t>(static_cast<int64_t>(value)) : static_cast<uint64_t>(value);
}

struct conversion {
    uint64_t target;
    uint64_t unit;
    double factor;
    double added;
};

constexpr conversion CONVERSIONS[] = {{2, 3, 39.37, 0}, {2, 4, 100.0, 0},    {2, 5, 3.937, 0},
                                      {2, 6, 10.0, 0},  {3, 2, 0.0254, 0.5}, {3, 4, 2.54, 0.5},
                                      {3, 5, 0.1, 0},   {3, 6, 0.254, 0.5}};

uint64_t expected_resolution(uint64_t target, uint64_t unit, uint64_t numerator, uint64_t denominator)
{
    if (target != 2 && target != 3)
        return 0;
    denominator = std::max<uint64_t>(denominator, 1);
    for (const conversion &each : CONVERSIONS)
        if (each.target == target && each.unit == unit)
            return whole_number(
                static_cast<double>(numerator) / static_cast<double>(denominator) * each.factor + each.added);
    return numerator / denominator;
}

void check_resolution(uint64_t target, const ZT_RESOLUTION &resolution)
{
    uint64_t x = 1, y = 2;
    const ZT_ERRCOUNT expected_status = target == 2 || target == 3 ? 0 : -2445;
    require_equal("the status", Bsu_convert_resolution(target, &x, &y, resolution), expected_status);
    require_equal(
        "the horizontal resolution", x,
        expected_resolution(target, resolution.unit, resolution.x_numerator, resolution.x_denominator));
    require_equal(
        "the vertical resolution", y,
        expected_resolution(target, resolution.unit, resolution.y_numerator, resolution.y_denominator));
    require_equal("the status without results", Bsu_convert_resolution(target, nullptr, nullptr, resolution),
                  expected_status);
}

void check_byte_order(uint64_t word)
{
    const auto value = static_cast<int64_t>(word);
    const uint32_t low = static_cast<uint32_t>(word);
    const uint64_t swapped =
        word >> 24 | word << 24 | (word >> 8 & UINT64_C(0xFF00)) | (word << 8 & UINT64_C(0xFF0000));
    require_equal("ii_dword_swap", ii_dword_swap(word), word);
    require_equal("ii_qword_swap", ii_qword_swap(value), value);
    require_equal("mm_dword_swap", mm_dword_swap(word), swapped);
    require_equal("the low half of mm_dword_swap", static_cast<uint32_t>(mm_dword_swap(low)),
                  __builtin_bswap32(low));
    require_equal("mm_qword_swap of 32 bits", static_cast<uint64_t>(mm_qword_swap(low)),
                  __builtin_bswap64(low));
    require_equal("mm_qword_swap", static_cast<uint64_t>(mm_qword_swap(value)),
                  swapped << 32 | mm_dword_swap(static_cast<uint64_t>(value >> 32)));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    byte_source source(data, size);
    const uint64_t target = source.take<uint8_t>() % 5;
    ZT_RESOLUTION resolution = {};
    resolution.unit = source.take<uint8_t>() % 8;
    resolution.x_numerator = source.take<uint64_t>();
    resolution.x_denominator = source.take<uint32_t>();
    resolution.y_numerator = source.take<uint32_t>();
    resolution.y_denominator = source.take<uint64_t>();
    check_resolution(target, resolution);
    const auto value = static_cast<LONG>(resolution.x_numerator);
    require_equal("pixels per metre", iQV_convert_DPI_to_PPM(value),
                  whole_number(static_cast<double>(value) * 39.37 + 0.5));
    require_equal("dots per inch", iQV_convert_PPM_to_DPI(value),
                  whole_number(static_cast<double>(value) * 0.0254 + 0.5));
    check_byte_order(resolution.x_numerator);
    return 0;
}
