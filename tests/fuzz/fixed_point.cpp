// Bsu_double_to_string with any value and precision, in a buffer that just holds the text.

#include "foundation/util.h"

#include "fuzz/target.h"

#include <math.h>
#include <stdio.h>

namespace {

// What is out of range, or no number, becomes the lowest value.
INT whole_number(double value)
{
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<INT>(value) : INT32_MIN;
}

INT magnitude(INT value)
{
    return value < 0 && value != INT32_MIN ? -value : value;
}

// The documented rules, in double as they are, and formatted by the C library's star instead of a built
// format.
std::string expected_text(INT precision, double value)
{
    const double power = pow(10.0, precision);
    const double rounded = 1.0 / power * 0.5 + value;
    const INT whole = whole_number(rounded);
    char text[1024];
    const double rest = (rounded - whole) * power;
    const int length = precision < 1 ? snprintf(text, sizeof text, "%d", whole)
                                     : snprintf(text, sizeof text, "%d.%0*d", whole, precision,
                                                magnitude(whole_number(rest)));
    return {text, static_cast<size_t>(length)};
}

// Independent of those rules: no digit of an ordinary number is further off than half a unit, and what double
// arithmetic adds to it.
void check_closeness(INT precision, double value, const char *text)
{
    if (precision < 1 || precision > 9 || !(value >= 0 && value < 1e6))
        return;
    const long double unit = powl(10.0L, -precision);
    const long double error = fabsl(strtold(text, nullptr) - static_cast<long double>(value));
    require(error <= unit * 0.5L + 1e-9L, "a value that is not negative is rounded to the nearest");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    byte_source source(data, size);
    const auto value = source.take<double>();
    const INT precision = source.take<int16_t>() % 500;
    const std::string expected = expected_text(precision, value);
    guarded_bytes buffer(expected.size() + 1);
    memset(buffer.data(), '#', buffer.size());
    const INT count = Bsu_double_to_string(precision, buffer.text(), value);
    require_equal("the text", content(buffer), expected + '\0');
    require_equal("the count", static_cast<size_t>(count), expected.size());
    check_closeness(precision, value, buffer.text());
    return 0;
}
