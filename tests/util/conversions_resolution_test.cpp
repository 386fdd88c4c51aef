// Resolutions: one axis between dots per inch and pixels per metre, and records of two ratios.

#include "util/conversions_fixture.h"

#include <gtest/gtest.h>

#include <string.h>

#include <ostream>
#include <vector>

namespace {

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
    EXPECT_EQ(result, UINT64_C(11811000000000000000));
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
        const double to_ppm = as_double * 39.37 + 0.5;
        const double to_dpi = as_double * 0.0254 + 0.5;
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
    double factor;
    double added;
};

const table_row conversion_table[] = {
    {2, 3, 39.37, 0},    {2, 4, 100.0, 0},  {2, 5, 3.937, 0}, {2, 6, 10.0, 0},
    {3, 2, 0.0254, 0.5}, {3, 4, 2.54, 0.5}, {3, 5, 0.1, 0},   {3, 6, 0.254, 0.5},
};

uint64_t expected_axis(uint64_t target, uint64_t source, uint64_t numerator, uint64_t denominator)
{
    if (denominator == 0)
        denominator = 1;
    for (const table_row &row : conversion_table)
        if (row.target == target && row.source == source) {
            const double ratio = static_cast<double>(numerator) / static_cast<double>(denominator);
            return expected_uint64(ratio * row.factor + row.added);
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
    0x80000001,
    0xffffffff,
    UINT64_C(0x100000000),
    UINT64_C(0x100000001),
    UINT64_C(0x1fffffffffffff),
    UINT64_C(0x20000000000000),
    UINT64_C(0x20000000000001),
    UINT64_C(234280900000000001),
    UINT64_C(0x7fffffffffffffff),
    UINT64_C(0x8000000000000000),
    UINT64_C(0x8000000000000001),
    UINT64_C(0x8000000000000401),
    UINT64_C(0xfffffffffffffbff),
    UINT64_C(0xfffffffffffffc00),
    UINT64_C(0xfffffffffffffffe),
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

TEST(ResolutionRecord, StoresTheVerticalResultLast)
{
    for (const uint64_t source : {ZT_RES_UNIT_METER, ZT_RES_UNIT_CENTIMETER}) {
        const ZT_RESOLUTION resolution = {118, 1, 59, 1, source};
        uint64_t both = 77;
        Bsu_convert_resolution(ZT_RES_UNIT_METER, &both, &both, resolution);
        EXPECT_EQ(both, convert(ZT_RES_UNIT_METER, resolution).y) << source;
    }
}

TEST(ResolutionRecord, IsTwoRatiosAndTheUnitInThatOrder)
{
    const uint64_t words[] = {118, 2, 50, 10, 4};
    ZT_RESOLUTION resolution;
    static_assert(sizeof words == sizeof resolution);
    memcpy(&resolution, words, sizeof resolution);
    EXPECT_EQ(convert(2, resolution), (axes{5900, 500, 0}));
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
