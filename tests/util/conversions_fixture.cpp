#include "conversions_fixture.h"

#include <math.h>
#include <stdio.h>
#include <string.h>

constinit platform_call<double(double, double)> pow_call{"pow"};
constinit platform_call<int(char *, const char *, va_list)> vsprintf_call{"vsprintf"};

extern "C" {

BEFORE_SANITIZER double pow(double base, double exponent) noexcept
{
    return pow_call(base, exponent);
}

BEFORE_SANITIZER int vsprintf(char *destination, const char *format, va_list arguments) noexcept
{
    return vsprintf_call(destination, format, arguments);
}

}  // extern "C"

uint64_t expected_uint64(double value)
{
    if (value >= TWO_TO_64)
        return 0;
    if (value < -TWO_TO_63)
        return UINT64_C(1) << 63;
    return value < 0 ? static_cast<uint64_t>(static_cast<int64_t>(value)) : static_cast<uint64_t>(value);
}

INT expected_int32(double value)
{
    INT result;
    asm("cvttsd2si %1, %0" : "=r"(result) : "x"(value));
    return result;
}

std::string fixed_point(INT precision, double value)
{
    CHAR buffer[2048];
    memset(buffer, 'x', sizeof buffer);
    const INT count = Bsu_double_to_string(precision, buffer, value);
    const std::string text(buffer, strnlen(buffer, sizeof buffer));
    return static_cast<size_t>(count) == text.size() ? text : text + ", counted as " + std::to_string(count);
}
