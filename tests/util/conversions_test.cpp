// Resolution, byte-order and number conversions, ASCII case, and the build date.

#include "foundation/os.h"
#include "foundation/util.h"

#include "support/build_facts.h"
#include "support/guarded_bytes.h"
#include "support/platform_call.h"

#include <gtest/gtest.h>

#include <limits.h>
#include <math.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <limits>
#include <string>
#include <vector>

// ---- Functions of the C library that the tests watch or replace

namespace {

constinit platform_call<double(double, double)> pow_call{"pow"};
constinit platform_call<int(char *, const char *, va_list)> vsprintf_call{"vsprintf"};

}  // namespace

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

namespace {

// The same sequence of words in every run.
class word_sequence {
public:
    explicit word_sequence(uint64_t start) : state_(start) {}

    uint64_t next()
    {
        state_ = state_ * UINT64_C(6364136223846793005) + UINT64_C(1442695040888963407);
        return state_;
    }

private:
    uint64_t state_;
};

constexpr double TWO_TO_63 = 9223372036854775808.0;
constexpr double TWO_TO_64 = 18446744073709551616.0;

// ---- The reference: the processor's own arithmetic. The operands are volatile, so that a compiler told to
// be fast neither contracts nor reorders nor replaces an operation here.

double product(double a, double b)
{
    volatile double left = a, right = b;
    volatile double result = left * right;
    return result;
}

double quotient(double a, double b)
{
    volatile double left = a, right = b;
    volatile double result = left / right;
    return result;
}

double sum(double a, double b)
{
    volatile double left = a, right = b;
    volatile double result = left + right;
    return result;
}

double decimal(const char *digits)  // the double nearest to it
{
    return strtod(digits, nullptr);
}

// Rounded once: the x87 format holds every 64-bit number exactly.
double nearest_double(uint64_t number)
{
    volatile long double exact = number;
    volatile double result = static_cast<double>(exact);
    return result;
}

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

const std::vector<LONG> resolutions_to_try = [] {
    std::vector<LONG> values;
    for (LONG value = -2000; value <= 30000; ++value)
        values.push_back(value);
    for (int bit = 15; bit < 63; ++bit)
        for (LONG difference = -3; difference <= 3; ++difference) {
            values.push_back((INT64_C(1) << bit) + difference);
            values.push_back(-(INT64_C(1) << bit) + difference);
        }
    // near 2^63 and 2^64 divided by 39.37
    for (const LONG bound : {INT64_C(234280900000000000), INT64_C(468560000000000000)})
        for (LONG step = -20; step <= 20; ++step) {
            values.push_back(bound + step * 1000000000000);
            values.push_back(-(bound + step * 1000000000000));
        }
    word_sequence words(1);
    for (int i = 0; i < 20000; ++i) {
        const uint64_t word = words.next();
        values.push_back(static_cast<LONG>(word) >> (word % 61));
    }
    for (const LONG extreme : {INT64_MIN, INT64_MIN + 1, INT64_MAX - 1, INT64_MAX})
        values.push_back(extreme);
    return values;
}();

}  // namespace

// ---- Dots per inch and pixels per metre

TEST(ResolutionOfOneAxis, DpiToPpmRoundsHalfUp)
{
    EXPECT_EQ(iQV_convert_DPI_to_PPM(72), 2835u);
    EXPECT_EQ(iQV_convert_DPI_to_PPM(96), 3780u);
    EXPECT_EQ(iQV_convert_DPI_to_PPM(300), 11811u);
    EXPECT_EQ(iQV_convert_DPI_to_PPM(0), 0u);
}

TEST(ResolutionOfOneAxis, PpmToDpiRoundsHalfUp)
{
    EXPECT_EQ(iQV_convert_PPM_to_DPI(2835), 72u);
    EXPECT_EQ(iQV_convert_PPM_to_DPI(3780), 96u);
    EXPECT_EQ(iQV_convert_PPM_to_DPI(11811), 300u);
    EXPECT_EQ(iQV_convert_PPM_to_DPI(20), 1u);
    EXPECT_EQ(iQV_convert_PPM_to_DPI(19), 0u);
    EXPECT_EQ(iQV_convert_PPM_to_DPI(0), 0u);
}

TEST(ResolutionOfOneAxis, NegativeGivesTheTwosComplementOfTheTruncatedSum)
{
    EXPECT_EQ(iQV_convert_DPI_to_PPM(-1), UINT64_C(18446744073709551578));
    EXPECT_EQ(iQV_convert_PPM_to_DPI(-19), 0u);
    EXPECT_EQ(iQV_convert_PPM_to_DPI(-100), static_cast<uint64_t>(INT64_C(-2)));  // -2.54 + 0.5
}

TEST(ResolutionOfOneAxis, ResultsFrom2To63OnAreUnsigned)
{
    // 300000000000000000 * 39.37 lies between 2^63 and 2^64.
    const uint64_t result = iQV_convert_DPI_to_PPM(INT64_C(300000000000000000));
    EXPECT_GT(result, UINT64_C(1) << 63);
    EXPECT_NEAR(static_cast<double>(result), 1.1811e19, 4096);
}

TEST(ResolutionOfOneAxis, ResultsOutOfRangeFollowTheProcessor)
{
    EXPECT_EQ(iQV_convert_DPI_to_PPM(INT64_MAX), 0u);
    EXPECT_EQ(iQV_convert_DPI_to_PPM(INT64_MIN), UINT64_C(1) << 63);
    EXPECT_EQ(iQV_convert_DPI_to_PPM(INT64_C(500000000000000000)), 0u);
    EXPECT_EQ(iQV_convert_DPI_to_PPM(INT64_C(-300000000000000000)), UINT64_C(1) << 63);
}

TEST(ResolutionOfOneAxis, AgreesWithTheProcessorsArithmeticEverywhere)
{
    for (const LONG value : resolutions_to_try) {
        const double as_double = static_cast<double>(value);
        const double to_ppm = sum(product(as_double, decimal("39.37")), 0.5);
        const double to_dpi = sum(product(as_double, decimal("0.0254")), 0.5);
        ASSERT_EQ(iQV_convert_DPI_to_PPM(value), expected_uint64(to_ppm)) << value;
        ASSERT_EQ(iQV_convert_PPM_to_DPI(value), expected_uint64(to_dpi)) << value;
    }
}

// ---- Resolution records

namespace {

struct axes {
    uint64_t x = 77;
    uint64_t y = 77;
    ZT_ERRCOUNT status = 77;

    bool operator==(const axes &other) const
    {
        return x == other.x && y == other.y && status == other.status;
    }
};

void PrintTo(const axes &values, std::ostream *stream)
{
    *stream << values.x << " and " << values.y << ", status " << values.status;
}

axes convert(uint64_t target_unit, ZT_RESOLUTION resolution)
{
    axes result;
    result.status = Bsu_convert_resolution(target_unit, &result.x, &result.y, resolution);
    return result;
}

struct table_row {
    uint64_t target, source;
    const char *factor;
    double added;
};

const table_row conversion_table[] = {
    {2, 3, "39.37", 0},    {2, 4, "100.0", 0},  {2, 5, "3.937", 0}, {2, 6, "10.0", 0},
    {3, 2, "0.0254", 0.5}, {3, 4, "2.54", 0.5}, {3, 5, "0.1", 0},   {3, 6, "0.254", 0.5},
};

uint64_t expected_axis(uint64_t target, uint64_t source, uint64_t numerator, uint64_t denominator)
{
    if (denominator == 0)
        denominator = 1;
    for (const table_row &row : conversion_table)
        if (row.target == target && row.source == source) {
            const double ratio = quotient(nearest_double(numerator), nearest_double(denominator));
            const double scaled = product(ratio, decimal(row.factor));
            return expected_uint64(row.added != 0 ? sum(scaled, row.added) : scaled);
        }
    return numerator / denominator;
}

const uint64_t terms_to_try[] = {
    0,
    1,
    2,
    3,
    7,
    19,
    20,
    72,
    96,
    118,
    300,
    725,
    1000,
    2835,
    11811,
    0x7fffffff,
    0x80000000,
    0xffffffff,
    UINT64_C(0x100000000),
    UINT64_C(0x1fffffffffffff),
    UINT64_C(0x20000000000001),
    UINT64_C(234280900000000001),
    UINT64_C(0x7fffffffffffffff),
    UINT64_C(0x8000000000000000),
    UINT64_C(0x8000000000000401),
    UINT64_C(0xfffffffffffffbff),
    UINT64_C(0xfffffffffffffc00),
    UINT64_C(0xffffffffffffffff),
};

}  // namespace

TEST(ResolutionRecord, ToMetreTruncates)
{
    EXPECT_EQ(convert(2, {72, 1, 72, 1, 3}), (axes{2834, 2834, 0}));
    EXPECT_EQ(convert(2, {118, 1, 118, 1, 4}), (axes{11800, 11800, 0}));
}

TEST(ResolutionRecord, ToInchRoundsExceptFromTenInches)
{
    EXPECT_EQ(convert(3, {2835, 1, 2835, 1, 2}), (axes{72, 72, 0}));
    EXPECT_EQ(convert(3, {725, 1, 725, 1, 5}), (axes{72, 72, 0}));
    EXPECT_EQ(convert(3, {118, 1, 118, 1, 4}), (axes{300, 300, 0}));
    EXPECT_EQ(convert(3, {1, 3, 1, 3, 2}), (axes{0, 0, 0}));
}

TEST(ResolutionRecord, OfTheSameOrNoUnitIsAnIntegerDivision)
{
    EXPECT_EQ(convert(3, {300, 4, 7, 2, 3}), (axes{75, 3, 0}));
    for (const uint64_t source : {UINT64_C(0), UINT64_C(1), UINT64_C(7), UINT64_C(0x100000003), UINT64_MAX}) {
        EXPECT_EQ(convert(3, {300, 4, 7, 2, source}), (axes{75, 3, 0})) << source;
        EXPECT_EQ(convert(2, {300, 4, 7, 2, source}), (axes{75, 3, 0})) << source;
    }
    EXPECT_EQ(convert(2, {UINT64_MAX, 2, UINT64_MAX, 1, 2}), (axes{INT64_MAX, UINT64_MAX, 0}));
}

TEST(ResolutionRecord, ReadsAZeroDenominatorAsOneOnEachAxis)
{
    EXPECT_EQ(convert(3, {1000, 0, 1000, 0, 6}), (axes{254, 254, 0}));
    EXPECT_EQ(convert(3, {1000, 0, 1000, 10, 6}), (axes{254, 25, 0}));
    EXPECT_EQ(convert(3, {1000, 10, 1000, 0, 6}), (axes{25, 254, 0}));
    EXPECT_EQ(convert(3, {9, 0, 8, 0, 3}), (axes{9, 8, 0}));
}

TEST(ResolutionRecord, OfAnotherTargetIsRefusedWithBothResultsZero)
{
    for (const uint64_t target :
         {UINT64_C(0), UINT64_C(1), UINT64_C(4), UINT64_C(5), UINT64_C(6), UINT64_C(7), UINT64_C(0x100000002),
          UINT64_C(0x8000000000000003), UINT64_MAX})
        for (const uint64_t source : {UINT64_C(0), UINT64_C(2), UINT64_C(3), target})
            EXPECT_EQ(convert(target, {300, 1, 300, 1, source}), (axes{0, 0, -2445})) << target;
}

TEST(ResolutionRecord, StoresOnlyThroughPointersThatAreNotNull)
{
    const ZT_RESOLUTION resolution = {118, 1, 59, 1, 4};
    for (const uint64_t target : {UINT64_C(2), UINT64_C(3), UINT64_C(4)}) {
        const axes both = convert(target, resolution);
        uint64_t x = 77;
        uint64_t y = 77;
        EXPECT_EQ(Bsu_convert_resolution(target, &x, nullptr, resolution), both.status);
        EXPECT_EQ(x, both.x);
        EXPECT_EQ(Bsu_convert_resolution(target, nullptr, &y, resolution), both.status);
        EXPECT_EQ(y, both.y);
        EXPECT_EQ(Bsu_convert_resolution(target, nullptr, nullptr, resolution), both.status);
    }
}

TEST(ResolutionRecord, LeavesTheCallersRecordAlone)
{
    ZT_RESOLUTION resolution = {1000, 0, 900, 0, 6};
    convert(3, resolution);
    EXPECT_EQ(resolution.x_denominator, 0u);
    EXPECT_EQ(resolution.y_denominator, 0u);
}

TEST(ResolutionRecord, UsesTheUnsignedRangeOfNumeratorAndDenominator)
{
    constexpr uint64_t half_range = UINT64_C(1) << 63;
    EXPECT_EQ(convert(2, {half_range, half_range, UINT64_MAX, UINT64_MAX, 4}), (axes{100, 100, 0}));
    EXPECT_EQ(convert(2, {half_range, 1, UINT64_MAX, 1, 4}), (axes{0, 0, 0}));
    // Exact doubles on either side of 2^63.
    EXPECT_EQ(convert(2, {UINT64_C(3) << 59, 1, UINT64_C(3) << 58, 1, 6}),
              (axes{UINT64_C(30) << 59, UINT64_C(30) << 58, 0}));
    EXPECT_EQ(convert(3, {UINT64_MAX, 1, UINT64_MAX, 10, 5}).x, UINT64_C(1844674407370955264));
}

TEST(ResolutionRecord, AgreesWithTheProcessorsArithmeticOverTheWholeTable)
{
    for (uint64_t target = 2; target <= 3; ++target)
        for (uint64_t source = 0; source <= 8; ++source)
            for (const uint64_t numerator : terms_to_try)
                for (const uint64_t denominator : terms_to_try) {
                    // The other axis gets the terms the other way round.
                    const axes expected = {expected_axis(target, source, numerator, denominator),
                                           expected_axis(target, source, denominator, numerator), 0};
                    const ZT_RESOLUTION resolution = {numerator, denominator, denominator, numerator, source};
                    ASSERT_EQ(convert(target, resolution), expected)
                        << source << " to " << target << ": " << numerator << '/' << denominator;
                }
}

TEST(ResolutionRecord, AgreesWithTheProcessorsArithmeticForManyQuotients)
{
    word_sequence words(2);
    for (int i = 0; i < 20000; ++i) {
        const uint64_t shifts = words.next();
        const uint64_t numerator = words.next() >> (shifts >> 58);
        const uint64_t denominator = words.next() >> (shifts >> 52 & 63);
        for (const table_row &row : conversion_table)
            ASSERT_EQ(convert(row.target, {numerator, denominator, 0, 1, row.source}).x,
                      expected_axis(row.target, row.source, numerator, denominator))
                << row.source << " to " << row.target << ": " << numerator << '/' << denominator;
    }
}

// ---- Byte order

namespace {

// Where each bit of the argument goes, one by one.
uint64_t expected_dword_swap(uint64_t value)
{
    uint64_t result = 0;
    for (int bit = 0; bit < 64; ++bit) {
        if ((value >> bit & 1) == 0)
            continue;
        if (bit >= 24)
            result |= UINT64_C(1) << (bit - 24);
        if (bit < 40)
            result |= UINT64_C(1) << (bit + 24);
        if (bit >= 16 && bit < 24)
            result |= UINT64_C(1) << (bit - 8);
        if (bit >= 8 && bit < 16)
            result |= UINT64_C(1) << (bit + 8);
    }
    return result;
}

uint64_t expected_qword_swap(uint64_t value)
{
    const uint64_t sign_fill = (value >> 63) != 0 ? UINT64_C(0xffffffff00000000) : 0;
    return expected_dword_swap(value) << 32 | expected_dword_swap(value >> 32 | sign_fill);
}

uint64_t qword_swap(uint64_t value)
{
    return static_cast<uint64_t>(mm_qword_swap(static_cast<int64_t>(value)));
}

template <typename Check> void for_many_words(Check check)
{
    for (int bit = 0; bit < 64; ++bit) {
        check(UINT64_C(1) << bit);
        check(~(UINT64_C(1) << bit));
        check((UINT64_C(1) << bit) - 1);
    }
    word_sequence words(3);
    for (int i = 0; i < 20000; ++i) {
        const uint64_t word = words.next();
        check(word);
        check(word >> (word & 63));
    }
}

}  // namespace

TEST(ByteOrder, LittleEndianWordsStayAsTheyAre)
{
    EXPECT_EQ(ii_dword_swap(UINT64_C(0x1122334455667788)), UINT64_C(0x1122334455667788));
    EXPECT_EQ(ii_qword_swap(INT64_C(0x1122334455667788)), INT64_C(0x1122334455667788));
    for_many_words([](uint64_t value) {
        ASSERT_EQ(ii_dword_swap(value), value);
        ASSERT_EQ(ii_qword_swap(static_cast<int64_t>(value)), static_cast<int64_t>(value));
    });
}

TEST(ByteOrder, BigEndianDwordsKeepTheirResidue)
{
    EXPECT_EQ(mm_dword_swap(0x12345678), UINT64_C(0x0012345678563412));
    EXPECT_EQ(mm_dword_swap(0xFF), UINT64_C(0xFF000000));
    EXPECT_EQ(mm_dword_swap(0xAABBCCDD), UINT64_C(0x00AABBCCDDCCBBAA));
    EXPECT_EQ(mm_dword_swap(0), 0u);
    for_many_words(
        [](uint64_t value) { ASSERT_EQ(mm_dword_swap(value), expected_dword_swap(value)) << value; });
}

TEST(ByteOrder, BigEndianDwordsBelow2To32AreReversedInTheLowHalfAndShiftedInTheHigh)
{
    for_many_words([](uint64_t value) {
        const uint32_t word = static_cast<uint32_t>(value);
        const uint64_t result = mm_dword_swap(word);
        ASSERT_EQ(static_cast<uint32_t>(result), __builtin_bswap32(word)) << word;
        ASSERT_EQ(result >> 32, word >> 8) << word;
    });
}

TEST(ByteOrder, BigEndianQwordsKeepTheResiduesOfBothHalves)
{
    EXPECT_EQ(qword_swap(0x12345678), UINT64_C(0x7856341200000000));
    EXPECT_EQ(qword_swap(UINT64_C(0x0102030405060708)), UINT64_C(0x0A07060704030201));
    EXPECT_EQ(qword_swap(UINT64_C(0x1122334400000000)), UINT64_C(0x2233663344332211));
    EXPECT_EQ(qword_swap(UINT64_C(0x8000000000000000)), UINT64_C(0xFF8000FFFFFFFF80));
    EXPECT_EQ(mm_qword_swap(-1), -1);
    EXPECT_EQ(mm_qword_swap(0), 0);
    for_many_words([](uint64_t value) { ASSERT_EQ(qword_swap(value), expected_qword_swap(value)) << value; });
}

TEST(ByteOrder, BigEndianQwordsBelow2To32AreReversed)
{
    for_many_words([](uint64_t value) {
        ASSERT_EQ(qword_swap(value & 0xffffffff), __builtin_bswap64(value & 0xffffffff)) << value;
    });
}

// ---- Fixed-point text

namespace {

std::string fixed_point(INT precision, double value)
{
    CHAR buffer[2048];
    memset(buffer, 'x', sizeof buffer);
    const INT count = Bsu_double_to_string(precision, buffer, value);
    EXPECT_EQ(static_cast<size_t>(count), strnlen(buffer, sizeof buffer)) << precision << ' ' << value;
    return std::string(buffer, strnlen(buffer, sizeof buffer));
}

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
    const double rounded = sum(product(quotient(1.0, power), 0.5), value);
    const INT whole = expected_int32(rounded);
    if (precision < 1)
        return std::to_string(whole);
    INT fraction = expected_int32(product(sum(rounded, -static_cast<double>(whole)), power));
    if (fraction < 0 && fraction != INT32_MIN)
        fraction = -fraction;
    return std::to_string(whole) + "." + zero_padded(fraction, precision);
}

const double INFINITE = std::numeric_limits<double>::infinity();

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
    for (const double edge : {2147483647.0, 2147483648.0, -2147483648.0, -2147483649.0, 4294967296.0, 1e10})
        for (const double step : {-1.0, -0.75, -0.5, -0.25, -1e-7, 0.0, 1e-7, 0.25, 0.5, 0.75, 1.0})
            values.push_back(edge + step);
    word_sequence words(4);
    for (int i = 0; i < 3000; ++i) {
        const uint64_t word = words.next();
        const double wide = static_cast<double>(static_cast<int64_t>(word));
        values.push_back(ldexp(wide, -static_cast<int>(word % 63)));
    }
    for (INT precision = -20; precision <= 20; ++precision)
        for (const double value : values)
            ASSERT_EQ(fixed_point(precision, value), expected_fixed_point(precision, value))
                << "precision " << precision << ", value " << value;
}

TEST(FixedPointText, OfTheLowestPrecisionIsMinus2147483648)
{
    EXPECT_EQ(fixed_point(INT32_MIN, 1.0), "-2147483648");  // half of ten to the 2147483648th is infinite
    EXPECT_EQ(fixed_point(-400, 0.0), "-2147483648");
}

TEST(FixedPointText, OfTheHighestPrecisionAsksForThatManyDigits)
{
    std::vector<std::string> formats;
    std::vector<INT> numbers;
    CHAR buffer[64];
    replaced_call replaced(vsprintf_call, [&](char *destination, const char *format, va_list arguments) {
        formats.push_back(format);
        va_list copy;
        va_copy(copy, arguments);
        numbers.push_back(va_arg(copy, int));
        if (destination == buffer)
            numbers.push_back(va_arg(copy, int));
        va_end(copy);
        return destination == buffer ? 4711 : vsprintf_call.original(destination, format, arguments);
    });
    EXPECT_EQ(Bsu_double_to_string(INT32_MAX, buffer, 1.0), 4711);
    EXPECT_EQ(formats, (std::vector<std::string>{"%%d.%%0%dd", "%d.%02147483647d"}));
    // The fraction is 0 times infinity.
    EXPECT_EQ(numbers, (std::vector<INT>{INT32_MAX, 1, INT32_MIN}));
}

TEST(FixedPointText, BelowPrecisionOneIsFormattedAsAWholeNumber)
{
    std::vector<std::string> formats;
    replaced_call replaced(vsprintf_call, [&](char *, const char *format, va_list) {
        formats.push_back(format);
        return -5;
    });
    CHAR buffer[64];
    EXPECT_EQ(Bsu_double_to_string(0, buffer, 1.0), -5);
    EXPECT_EQ(formats, std::vector<std::string>{"%d"});
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

// ---- Case

namespace {

std::string lowered(std::string text)
{
    EXPECT_EQ(Bsu_strlwr(text.data()), text.data());
    return text;
}

std::string raised(std::string text)
{
    EXPECT_EQ(Bsu_strupr(text.data()), text.data());
    return text;
}

std::string every_byte_but_zero()
{
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        bytes += static_cast<CHAR>(byte);
    return bytes;
}

// A text too long to be held in memory: the same 64 MiB of "A" over and over.
class enormous_text {
public:
    explicit enormous_text(uint64_t length) : mapped_bytes_(length / PIECE_BYTES * PIECE_BYTES + PIECE_BYTES)
    {
        const int file = memfd_create("text", 0);
        EXPECT_EQ(ftruncate(file, PIECE_BYTES), 0);
        void *reserved =
            mmap(nullptr, mapped_bytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        EXPECT_NE(reserved, MAP_FAILED);
        text_ = static_cast<CHAR *>(reserved);
        map_piece(file, 0, MAP_SHARED);
        memset(text_, 'A', PIECE_BYTES);
        uint64_t offset = PIECE_BYTES;
        for (; offset + PIECE_BYTES < mapped_bytes_; offset += PIECE_BYTES)
            map_piece(file, offset, MAP_SHARED);
        map_piece(file, offset, MAP_PRIVATE);  // the terminator stands in this one alone
        text_[length] = '\0';
        close(file);
    }
    ~enormous_text() { munmap(text_, mapped_bytes_); }
    enormous_text(const enormous_text &) = delete;
    enormous_text &operator=(const enormous_text &) = delete;

    CHAR *text() { return text_; }

private:
    static constexpr uint64_t PIECE_BYTES = UINT64_C(64) << 20;

    void map_piece(int file, uint64_t offset, int sharing)
    {
        void *piece = mmap(text_ + offset, PIECE_BYTES, PROT_READ | PROT_WRITE,
                           MAP_FIXED | MAP_POPULATE | sharing, file, 0);
        EXPECT_NE(piece, MAP_FAILED);
    }

    uint64_t mapped_bytes_;
    CHAR *text_;
};

}  // namespace

TEST(CaseChange, ConvertsAsciiLettersOnly)
{
    EXPECT_EQ(lowered("MiXeD 123_Z"), "mixed 123_z");
    EXPECT_EQ(raised("MiXeD 123_Z"), "MIXED 123_Z");
}

TEST(CaseChange, LeavesEveryOtherByteAsItIs)
{
    std::string expected_lower = every_byte_but_zero();
    std::string expected_upper = every_byte_but_zero();
    for (int i = 0; i < 26; ++i) {
        expected_lower[static_cast<size_t>('A' + i - 1)] = static_cast<CHAR>('a' + i);
        expected_upper[static_cast<size_t>('a' + i - 1)] = static_cast<CHAR>('A' + i);
    }
    EXPECT_EQ(lowered(every_byte_but_zero()), expected_lower);
    EXPECT_EQ(raised(every_byte_but_zero()), expected_upper);
    EXPECT_EQ(lowered("\xC4"), "\xC4");
    EXPECT_EQ(raised("\xC4"), "\xC4");
}

TEST(CaseChange, WorksAtEveryLength)
{
    for (size_t length = 0; length <= 70; ++length) {
        guarded_bytes text(std::string(length, 'q').c_str(), length + 1);
        EXPECT_EQ(Bsu_strupr(text.text()), text.text());
        EXPECT_EQ(text.text(), std::string(length, 'Q'));
        EXPECT_EQ(Bsu_strlwr(text.text()), text.text());
        EXPECT_EQ(text.text(), std::string(length, 'q'));
    }
}

TEST(CaseChange, StopsAtTheTerminator)
{
    EXPECT_EQ(raised(std::string("ab\0cd", 5)), std::string("AB\0cd", 5));
    EXPECT_EQ(lowered(std::string("AB\0CD", 5)), std::string("ab\0CD", 5));
}

TEST(CaseChange, DoesNotWriteToAnEmptyText)
{
    static const CHAR empty[] = "";  // in memory that cannot be written
    CHAR *text = const_cast<CHAR *>(empty);
    EXPECT_EQ(Bsu_strlwr(text), text);
    EXPECT_EQ(Bsu_strupr(text), text);
}

// The length is a signed 32-bit count, which 2^31 makes negative and 2^32 + 3 makes 3.
TEST(CaseChange, OfATextOf2GiBIsNone)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    enormous_text text(UINT64_C(1) << 31);
    EXPECT_EQ(Bsu_strlwr(text.text()), text.text());
    EXPECT_EQ(std::string(text.text(), 5), "AAAAA");
}

TEST(CaseChange, OfATextOf4GiBAndThreeIsThatOfThree)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    enormous_text text((UINT64_C(1) << 32) + 3);
    EXPECT_EQ(Bsu_strlwr(text.text()), text.text());
    EXPECT_EQ(std::string(text.text(), 5), "aaaAA");
}

// ---- Build date

TEST(BuildDate, IsADateInThePreprocessorsForm)
{
    const std::string date = iQV_version_compile_date();
    ASSERT_EQ(date.size(), 11u);
    static const std::string months = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const size_t month = months.find(date.substr(0, 3));
    EXPECT_NE(month, std::string::npos) << date;
    EXPECT_EQ(month % 3, 0u) << date;
    EXPECT_EQ(date[3], ' ');
    const int day = atoi(date.substr(4, 2).c_str());
    EXPECT_TRUE(day >= 1 && day <= 31) << date;
    EXPECT_EQ(date[4] == ' ', day < 10) << date;
    EXPECT_EQ(date[6], ' ');
    EXPECT_EQ(date.find_first_not_of("0123456789", 7), std::string::npos) << date;
    const int year = atoi(date.c_str() + 7);
    EXPECT_TRUE(year >= 1970 && year <= 9999) << date;
}

TEST(BuildDate, IsNotInTheFuture)
{
    tm fields = {};
    ASSERT_NE(strptime(iQV_version_compile_date(), "%b %e %Y", &fields), nullptr);
    const time_t one_day = 86400;  // the builder's time zone may be another
    EXPECT_LE(timegm(&fields), time(nullptr) + one_day);
}

TEST(BuildDate, IsTheSamePointerOnEveryCall)
{
    EXPECT_EQ(iQV_version_compile_date(), iQV_version_compile_date());
}
