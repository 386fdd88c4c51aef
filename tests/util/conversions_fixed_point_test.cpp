// Numbers as texts of a fixed count of decimals.

#include "util/conversions_fixture.h"

#include <gtest/gtest.h>

#include <math.h>
#include <string.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace {

// printf's "%0<width>d"
std::string zero_padded(INT number, INT width)
{
    std::string digits = std::to_string(number);
    const size_t sign_length = number < 0 ? 1 : 0;
    if (digits.size() < static_cast<size_t>(width))
        digits.insert(sign_length, static_cast<size_t>(width) - digits.size(), '0');
    return digits;
}

std::string expected_fixed_point(INT precision, double value)
{
    const double power = pow(10.0, precision);
    const double rounded = (1.0 / power) * 0.5 + value;
    const INT whole = expected_int32(rounded);
    if (precision < 1)
        return std::to_string(whole);
    INT fraction = expected_int32((rounded - whole) * power);
    if (fraction < 0 && fraction != INT32_MIN)
        fraction = -fraction;
    return std::to_string(whole) + "." + zero_padded(fraction, precision);
}

const double INFINITE = std::numeric_limits<double>::infinity();

std::vector<double> values_to_try()
{
    using limits = std::numeric_limits<double>;
    std::vector<double> values = {0.0,
                                  -0.0,
                                  0.5,
                                  -0.5,
                                  1.0,
                                  -1.0,
                                  0.05,
                                  0.005,
                                  0.0005,
                                  0.125,
                                  0.375,
                                  1e-300,
                                  1e300,
                                  -1e300,
                                  123456.789,
                                  -123456.789,
                                  999999.9999999,
                                  INFINITE,
                                  -INFINITE,
                                  limits::quiet_NaN(),
                                  limits::min(),
                                  limits::denorm_min(),
                                  limits::max()};
    for (const double edge : {2147483647.0, 2147483648.0, -2147483648.0, -2147483649.0, 4294967296.0, 1e10,
                              ldexp(1.0, 53), ldexp(1.0, 63), ldexp(1.0, 64)})
        for (const double step : {-1.0, -0.75, -0.5, -0.25, -1e-7, 0.0, 1e-7, 0.25, 0.5, 0.75, 1.0})
            values.push_back(edge + step);
    for (const int bound : {31, 32, 53, 63, 64})
        for (const double sign : {-1.0, 1.0}) {
            values.push_back(nextafter(sign * ldexp(1.0, bound), 0.0));
            values.push_back(nextafter(sign * ldexp(1.0, bound), sign * INFINITE));
        }
    word_sequence words(4);
    for (int i = 0; i < 3000; ++i) {
        const uint64_t word = words.next();
        const double wide = static_cast<double>(static_cast<int64_t>(word));
        values.push_back(ldexp(wide, -static_cast<int>(word % 63)));
    }
    return values;
}

}  // namespace

TEST(FixedPointText, RoundsHalfAUnitUpwardAndTruncates)
{
    EXPECT_EQ(fixed_point(2, 3.14159), "3.14");
    EXPECT_EQ(fixed_point(2, 0.999), "1.00");
    EXPECT_EQ(fixed_point(3, 1.0), "1.000");
    EXPECT_EQ(fixed_point(1, 0.96), "1.0");
    EXPECT_EQ(fixed_point(0, 2.5), "3");
    EXPECT_EQ(fixed_point(9, 0.5), "0.500000000");
}

TEST(FixedPointText, RoundsNegativeValuesTowardPositiveInfinity)
{
    EXPECT_EQ(fixed_point(3, -7.0), "-6.999");
    EXPECT_EQ(fixed_point(1, -1.26), "-1.2");
    EXPECT_EQ(fixed_point(0, -2.5), "-2");
}

TEST(FixedPointText, LosesTheSignOfAWholePartOfZero)
{
    EXPECT_EQ(fixed_point(2, -0.004), "0.00");
    EXPECT_EQ(fixed_point(1, -0.5), "0.4");
}

TEST(FixedPointText, OfNegativePrecisionAddsHalfOfThatPowerOfTen)
{
    EXPECT_EQ(fixed_point(-1, 12.3), "17");
    EXPECT_EQ(fixed_point(-2, 12.3), "62");
}

TEST(FixedPointText, OverflowsTheFractionAboveNineDecimals)
{
    EXPECT_EQ(fixed_point(10, 0.5), "0.-2147483648");
    EXPECT_EQ(fixed_point(15, 0.5), "0.-00002147483648");
}

TEST(FixedPointText, OutsideThe32BitRangeIsMinus2147483648)
{
    EXPECT_EQ(fixed_point(0, 2147483647.0), "2147483647");
    EXPECT_EQ(fixed_point(0, 2147483647.5), "-2147483648");
    EXPECT_EQ(fixed_point(0, -2147483648.0), "-2147483647");
    EXPECT_EQ(fixed_point(0, -2147483649.0), "-2147483648");
    EXPECT_EQ(fixed_point(0, -2147483649.5), "-2147483648");
    EXPECT_EQ(fixed_point(0, 1e10), "-2147483648");
    EXPECT_EQ(fixed_point(0, INFINITE), "-2147483648");
    EXPECT_EQ(fixed_point(2, INFINITE), "-2147483648.-2147483648");
    EXPECT_EQ(fixed_point(2, -INFINITE), "-2147483648.-2147483648");
}

TEST(FixedPointText, CountsAndPadsWideFractions)
{
    EXPECT_EQ(fixed_point(1000, 0.0).size(), 1002u);
    EXPECT_EQ(fixed_point(308, 0.0), "0." + std::string(308, '0'));
}

TEST(FixedPointText, AgreesWithTheProcessorsArithmeticForEveryPrecisionFromMinus20To20)
{
    const std::vector<double> values = values_to_try();
    for (INT precision = -20; precision <= 20; ++precision)
        for (const double value : values)
            ASSERT_EQ(fixed_point(precision, value), expected_fixed_point(precision, value))
                << "precision " << precision << ", value " << value;
}

TEST(FixedPointText, AgreesWithTheProcessorsArithmeticWherePowersOfTenEnd)
{
    for (const INT precision : {INT32_MIN, INT32_MIN + 1, -65536, -400, -324, -323, -309, -308, -307, -23, 23,
                                307, 308, 309, 323, 324, 400, 1000})
        for (const double value : {0.0, -0.0, 0.5, -0.5, 1.0, 1e-300, 1e300, 2147483647.5, INFINITE})
            EXPECT_EQ(fixed_point(precision, value), expected_fixed_point(precision, value))
                << "precision " << precision << ", value " << value;
}

TEST(FixedPointText, OfTheLowestPrecisionIsMinus2147483648)
{
    EXPECT_EQ(fixed_point(INT32_MIN, 1.0), "-2147483648");  // half of ten to the 2147483648th is infinite
    EXPECT_EQ(fixed_point(-400, 0.0), "-2147483648");
}

// The whole number and the fraction stand for what is handed to the built format.
TEST(FixedPointText, IsFormattedByTheTwoFormatsAndCountsWhatTheLastReturns)
{
    CHAR buffer[64];
    std::vector<std::string> calls;
    const replaced_call replaced(
        vsprintf_call, [&](char *destination, const char *format, va_list arguments) {
            va_list copy;
            va_copy(copy, arguments);
            std::string call = std::string(format) + ": " + std::to_string(va_arg(copy, int));
            if (destination == buffer && strchr(format, '.') != nullptr)
                call += " and " + std::to_string(va_arg(copy, int));
            va_end(copy);
            calls.push_back(call);
            return destination == buffer ? -4711 : vsprintf_call.original(destination, format, arguments);
        });
    using texts = std::vector<std::string>;
    const auto calls_for = [&](INT precision, double value) {
        calls.clear();
        const INT count = Bsu_double_to_string(precision, buffer, value);
        calls.push_back("gave " + std::to_string(count));
        return calls;
    };
    EXPECT_EQ(calls_for(2, 3.14159), (texts{"%%d.%%0%dd: 2", "%d.%02d: 3 and 14", "gave -4711"}));
    EXPECT_EQ(calls_for(1, -1.26), (texts{"%%d.%%0%dd: 1", "%d.%01d: -1 and 2", "gave -4711"}));
    EXPECT_EQ(calls_for(0, 2.5), (texts{"%d: 3", "gave -4711"}));
    EXPECT_EQ(calls_for(-1, 12.3), (texts{"%d: 17", "gave -4711"}));
    EXPECT_EQ(calls_for(INT32_MIN, 1.0), (texts{"%d: -2147483648", "gave -4711"}));
    // The fraction is 0 times infinity.
    EXPECT_EQ(calls_for(INT32_MAX, 1.0),
              (texts{"%%d.%%0%dd: 2147483647", "%d.%02147483647d: 1 and -2147483648", "gave -4711"}));
}

// A compiler set to be fast would call another function, whose results differ in the last digit.
TEST(FixedPointText, TakesThePowerFromTheMathLibrarysPow)
{
    std::vector<std::pair<double, double>> calls;
    replaced_call replaced(pow_call, [&](double base, double exponent) {
        calls.emplace_back(base, exponent);
        return 1000.0;
    });
    EXPECT_EQ(fixed_point(2, 0.25), "0.250");
    EXPECT_EQ(fixed_point(0, 0.25), "0");
    EXPECT_EQ(fixed_point(-3, 0.25), "0");
    EXPECT_EQ(fixed_point(5, 0.25), "0.00250");
    EXPECT_EQ(calls, (std::vector<std::pair<double, double>>{{10, 2}, {10, 0}, {10, -3}, {10, 5}}));
}
