// Double to integer, truncated toward zero. Private to the library.
//
// C++ leaves a conversion out of range undefined; the results here are those of the processor's own
// instructions, under every compiler. Not-a-number counts as out of range.
#pragma once

#include "foundation/types.h"

constexpr double TWO_TO_31 = 2147483648.0;
constexpr double TWO_TO_63 = 9223372036854775808.0;
constexpr double TWO_TO_64 = 18446744073709551616.0;

inline INT truncate_to_int32(double value)
{
    const bool is_in_range = value > -TWO_TO_31 - 1 && value < TWO_TO_31;
    return is_in_range ? static_cast<INT>(value) : INT32_MIN;
}

inline LONG truncate_to_int64(double value)
{
    const bool is_in_range = value >= -TWO_TO_63 && value < TWO_TO_63;
    return is_in_range ? static_cast<LONG>(value) : INT64_MIN;
}
