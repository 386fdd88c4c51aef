// Resolution, byte-order and number conversions, and ASCII case.

#include "truncate.h"

#include "foundation/os.h"
#include "foundation/util.h"

#include <emmintrin.h>
#include <math.h>
#include <string.h>

static_assert(offsetof(ZT_RESOLUTION, x_numerator) == 0 && offsetof(ZT_RESOLUTION, x_denominator) == 8 &&
                  offsetof(ZT_RESOLUTION, y_numerator) == 16 &&
                  offsetof(ZT_RESOLUTION, y_denominator) == 24 && offsetof(ZT_RESOLUTION, unit) == 32 &&
                  sizeof(ZT_RESOLUTION) == 40,
              "ZT_RESOLUTION is ABI");

namespace {

constexpr CHAR lpszFmtWhole[] = "%d";
constexpr CHAR lpszFmtFraction[] = "%%d.%%0%dd";

// As truncate.h, to 64 bits unsigned. A negative value comes out as its two's complement, one below -2^63 as
// 2^63.
uint64_t truncate_to_uint64(double value)
{
    if (value >= TWO_TO_64)
        return 0;
    if (value >= TWO_TO_63)
        return static_cast<uint64_t>(truncate_to_int64(value - TWO_TO_63)) | (UINT64_C(1) << 63);
    return static_cast<uint64_t>(truncate_to_int64(value));
}

INT absolute(INT value)  // INT32_MIN stays INT32_MIN
{
    return value < 0 ? static_cast<INT>(0u - static_cast<UINT>(value)) : value;
}

// ---- Resolution

// 39.37 and 3.937 are short on purpose: clients depend on results that 1 / 0.0254 would not give.
constexpr double INCHES_PER_METER = 39.37;
constexpr double METERS_PER_INCH = 0.0254;

struct unit_conversion {
    uint64_t target_unit;
    uint64_t source_unit;
    double factor;
    double added_before_truncation;  // only some conversions to inches round; stored results depend on it
};

constexpr unit_conversion unit_conversions[] = {
    {ZT_RES_UNIT_METER, ZT_RES_UNIT_INCH, INCHES_PER_METER, 0.0},
    {ZT_RES_UNIT_METER, ZT_RES_UNIT_CENTIMETER, 100.0, 0.0},
    {ZT_RES_UNIT_METER, ZT_RES_UNIT_10_INCHES, 3.937, 0.0},
    {ZT_RES_UNIT_METER, ZT_RES_UNIT_10_CENTIMETERS, 10.0, 0.0},
    {ZT_RES_UNIT_INCH, ZT_RES_UNIT_METER, METERS_PER_INCH, 0.5},
    {ZT_RES_UNIT_INCH, ZT_RES_UNIT_CENTIMETER, 2.54, 0.5},
    {ZT_RES_UNIT_INCH, ZT_RES_UNIT_10_INCHES, 0.1, 0.0},
    {ZT_RES_UNIT_INCH, ZT_RES_UNIT_10_CENTIMETERS, 0.254, 0.5},
};

// Null where both units are the same or the source code is none of the table's: then the ratio is taken
// as it is.
const unit_conversion *find_conversion(uint64_t target_unit, uint64_t source_unit)
{
    for (const unit_conversion &entry : unit_conversions)
        if (entry.target_unit == target_unit && entry.source_unit == source_unit)
            return &entry;
    return nullptr;
}

uint64_t convert_axis(uint64_t numerator, uint64_t denominator, const unit_conversion *conversion)
{
    if (denominator == 0)
        denominator = 1;
    if (conversion == nullptr)
        return numerator / denominator;
    // Division before multiplication: the order decides the last digit.
    const double per_source_unit = static_cast<double>(numerator) / static_cast<double>(denominator);
    return truncate_to_uint64(per_source_unit * conversion->factor + conversion->added_before_truncation);
}

void store_axes(uint64_t *x, uint64_t *y, uint64_t x_value, uint64_t y_value)
{
    if (x != nullptr)
        *x = x_value;
    if (y != nullptr)
        *y = y_value;
}

// ---- Case

// Turn over bit 0x20, in which the two cases of a letter differ, of every byte from `first` to `last`. One
// unsigned comparison covers both ends.
BYTE with_case_changed(BYTE byte, BYTE first, BYTE last)
{
    const bool is_in_range = static_cast<BYTE>(byte - first) <= last - first;
    return static_cast<BYTE>(byte ^ (is_in_range ? 0x20 : 0));
}

__m128i with_case_changed(__m128i bytes, BYTE first, BYTE last)
{
    const __m128i beyond_first = _mm_sub_epi8(bytes, _mm_set1_epi8(static_cast<CHAR>(first)));
    const __m128i width = _mm_set1_epi8(static_cast<CHAR>(last - first));
    const __m128i is_in_range = _mm_cmpeq_epi8(_mm_min_epu8(beyond_first, width), beyond_first);
    return _mm_xor_si128(bytes, _mm_and_si128(is_in_range, _mm_set1_epi8(0x20)));
}

__m128i *sixteen_at(CHAR *text)
{
    return reinterpret_cast<__m128i *>(text);
}

// Change the case of every letter from `first` to `last`. The length is a signed 32-bit count: a text whose
// length comes out below 1 is left alone.
CHAR *change_case(CHAR *text, BYTE first, BYTE last)
{
    const INT length = static_cast<INT>(strlen(text));
    if (length < 16) {
        for (INT i = 0; i < length; ++i)
            text[i] = static_cast<CHAR>(with_case_changed(static_cast<BYTE>(text[i]), first, last));
        return text;
    }
    // The last sixteen bytes may overlap those before them, so they are read before those are written.
    const __m128i final_sixteen = _mm_loadu_si128(sixteen_at(text + length - 16));
    for (INT i = 0; i < length - 16; i += 16)
        _mm_storeu_si128(sixteen_at(text + i),
                         with_case_changed(_mm_loadu_si128(sixteen_at(text + i)), first, last));
    _mm_storeu_si128(sixteen_at(text + length - 16), with_case_changed(final_sixteen, first, last));
    return text;
}

}  // namespace

uint64_t iQV_convert_DPI_to_PPM(LONG dots_per_inch)
{
    return truncate_to_uint64(static_cast<double>(dots_per_inch) * INCHES_PER_METER + 0.5);
}

uint64_t iQV_convert_PPM_to_DPI(LONG pixels_per_metre)
{
    return truncate_to_uint64(static_cast<double>(pixels_per_metre) * METERS_PER_INCH + 0.5);
}

ZT_ERRCOUNT Bsu_convert_resolution(uint64_t target_unit, uint64_t *x, uint64_t *y, ZT_RESOLUTION resolution)
{
    if (target_unit != ZT_RES_UNIT_METER && target_unit != ZT_RES_UNIT_INCH) {
        store_axes(x, y, 0, 0);
        return ZR_ERR_TARGET_UNIT;
    }
    const unit_conversion *conversion = find_conversion(target_unit, resolution.unit);
    store_axes(x, y, convert_axis(resolution.x_numerator, resolution.x_denominator, conversion),
               convert_axis(resolution.y_numerator, resolution.y_denominator, conversion));
    return 0;
}

uint64_t ii_dword_swap(uint64_t value)
{
    return value;
}

int64_t ii_qword_swap(int64_t value)
{
    return value;
}

// Nothing is masked to 32 bits: what the two outer shifts carry past bit 31 stays. Callers depend on it.
uint64_t mm_dword_swap(uint64_t value)
{
    return (value >> 24) | (value << 24) | ((value >> 8) & 0xFF00) | ((value << 8) & 0xFF0000);
}

// Joins two swaps with their residues, the lower one given all 64 bits. Outside 0 to 2^32 - 1 callers get the
// residues joined as well, and no byte reversal.
int64_t mm_qword_swap(int64_t value)
{
    const uint64_t from_upper = mm_dword_swap(static_cast<uint64_t>(value >> 32));  // arithmetic shift
    const uint64_t from_whole = mm_dword_swap(static_cast<uint64_t>(value));
    return static_cast<int64_t>((from_whole << 32) | from_upper);
}

INT Bsu_double_to_string(INT precision, CHAR *buffer, double value)
{
    const double power = pow(10.0, static_cast<double>(precision));
    const double rounded = (1.0 / power) * 0.5 + value;  // callers see negative values rounded upward, too
    const INT whole = truncate_to_int32(rounded);
    if (precision < 1)
        return OS_sprintf(buffer, lpszFmtWhole, whole);

    CHAR format[32];  // holds the format for any 32-bit precision
    OS_sprintf(format, lpszFmtFraction, precision);
    const INT fraction = absolute(truncate_to_int32((rounded - whole) * power));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return OS_sprintf(buffer, format, whole, fraction);
#pragma GCC diagnostic pop
}

CHAR *Bsu_strlwr(CHAR *text)
{
    return change_case(text, 'A', 'Z');
}

CHAR *Bsu_strupr(CHAR *text)
{
    return change_case(text, 'a', 'z');
}
