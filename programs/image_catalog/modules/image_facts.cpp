#include "image_facts.h"

#include "foundation/os.h"

bool report_problem(IMAGE_FACTS &facts, const CHAR *reason)
{
    OS_strncpy(facts.problem, reason, IMAGE_PROBLEM_SIZE - 1);
    return false;
}

bool accept_size(IMAGE_FACTS &facts, uint64_t width, uint64_t height, uint64_t data_bytes,
                 uint64_t pixels_per_byte)
{
    constexpr uint64_t longest_side = INT32_MAX;
    const bool is_possible = width >= 1 && width <= longest_side && height >= 1 && height <= longest_side;
    if (!is_possible) {
        OS_sprintf(facts.problem, "header claims an impossible size of %llu x %llu",
                   static_cast<unsigned long long>(width), static_cast<unsigned long long>(height));
        return false;
    }
    facts.width = width;
    facts.height = height;
    // Rounded up: the last byte may be used in part. No product here exceeds 2^62.
    if ((width * height - 1) / pixels_per_byte + 1 > data_bytes) {
        OS_sprintf(facts.problem, "header claims %llu x %llu pixels, more than its %llu bytes can hold",
                   static_cast<unsigned long long>(width), static_cast<unsigned long long>(height),
                   static_cast<unsigned long long>(data_bytes));
        return false;
    }
    return true;
}

namespace {

// Between equal units the library truncates: ask for half dots and round them.
void round_to_inches(ZT_RESOLUTION resolution, uint64_t &x, uint64_t &y)
{
    resolution.x_numerator *= 2;
    resolution.y_numerator *= 2;
    Bsu_convert_resolution(ZT_RES_UNIT_INCH, &x, &y, resolution);
    x = (x + 1) / 2;
    y = (y + 1) / 2;
}

}  // namespace

void store_resolution(IMAGE_FACTS &facts, const ZT_RESOLUTION &resolution)
{
    // "0 / 0" stands for unknown in files, where the library would read the denominator as 1.
    ZT_RESOLUTION known = resolution;
    if (known.x_denominator == 0)
        known.x_numerator = 0;
    if (known.y_denominator == 0)
        known.y_numerator = 0;

    const bool has_length = known.unit == ZT_RES_UNIT_INCH || known.unit == ZT_RES_UNIT_CENTIMETER ||
                            known.unit == ZT_RES_UNIT_METER;
    if (!has_length || (known.x_numerator == 0 && known.y_numerator == 0))
        return;
    facts.has_dpi = 1;
    if (known.unit == ZT_RES_UNIT_INCH)
        round_to_inches(known, facts.dpi_x, facts.dpi_y);
    else
        Bsu_convert_resolution(ZT_RES_UNIT_INCH, &facts.dpi_x, &facts.dpi_y, known);

    // A file that gives one axis alone means both.
    if (known.x_numerator == 0)
        facts.dpi_x = facts.dpi_y;
    if (known.y_numerator == 0)
        facts.dpi_y = facts.dpi_x;
}
