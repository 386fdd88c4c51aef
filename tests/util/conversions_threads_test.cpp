// Conversions keep nothing: on several threads at once, and where there is nothing to write to.

#include "util/conversions_fixture.h"

#include "support/child_process.h"
#include "support/library_copy.h"
#include "support/read_only_data.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

struct conversion_case {
    INT precision;
    double value;
    std::string text;
    ZT_RESOLUTION per_centimetre;
    uint64_t x_per_metre, y_per_metre;
    std::string mixed, lower, upper;
};

// The first conversion, if any, that gave another result than this case's.
std::string first_wrong_conversion(const conversion_case &expected, int repetitions)
{
    for (int i = 0; i < repetitions; ++i) {
        const std::string text = fixed_point(expected.precision, expected.value);
        if (text != expected.text)
            return "Bsu_double_to_string: " + text;
        uint64_t x = 0, y = 0;
        Bsu_convert_resolution(ZT_RES_UNIT_METER, &x, &y, expected.per_centimetre);
        if (x != expected.x_per_metre || y != expected.y_per_metre)
            return "Bsu_convert_resolution: " + std::to_string(x) + " and " + std::to_string(y);
        std::string letters = expected.mixed;
        if (Bsu_strlwr(letters.data()) != expected.lower)
            return "Bsu_strlwr: " + letters;
        if (Bsu_strupr(letters.data()) != expected.upper)
            return "Bsu_strupr: " + letters;
    }
    return "";
}

}  // namespace

TEST(Conversions, AreEachThreadsOwnWhenSeveralConvertAtOnce)
{
    const std::vector<conversion_case> cases = {
        {2, 3.14159, "3.14", {72, 1, 96, 1, 4}, 7200, 9600, "MiXeD 123_Z", "mixed 123_z", "MIXED 123_Z"},
        {3, -7.0, "-6.999", {10, 4, 3, 2, 4}, 250, 150, "Ab", "ab", "AB"},
        {0, 2.5, "3", {5, 0, 6, 0, 4}, 500, 600, "qQqQqQqQqQqQ", "qqqqqqqqqqqq", "QQQQQQQQQQQQ"},
        {9, 0.5, "0.500000000", {1, 1, 2, 1, 4}, 100, 200, "", "", ""},
    };
    std::atomic<size_t> threads_ready{0};
    std::vector<std::string> wrong_conversions(cases.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < cases.size(); ++i)
        threads.emplace_back([&, i] {
            ++threads_ready;
            while (threads_ready < cases.size())
                std::this_thread::yield();
            wrong_conversions[i] = first_wrong_conversion(cases[i], 20000);
        });
    for (std::thread &thread : threads)
        thread.join();
    for (size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(wrong_conversions[i], "") << "the thread of precision " << cases[i].precision;
}

TEST(Conversions, KeepNothingInTheLibrarysData)
{
    if (counts_coverage())
        GTEST_SKIP() << "the counters of a coverage build stand in the library's data";
    const library_copy fresh;
    const auto to_string = fresh.find("Bsu_double_to_string", Bsu_double_to_string);
    const auto convert_resolution = fresh.find("Bsu_convert_resolution", Bsu_convert_resolution);
    const auto to_ppm = fresh.find("iQV_convert_DPI_to_PPM", iQV_convert_DPI_to_PPM);
    const auto to_dpi = fresh.find("iQV_convert_PPM_to_DPI", iQV_convert_PPM_to_DPI);
    const auto dword_swap = fresh.find("mm_dword_swap", mm_dword_swap);
    const auto qword_swap = fresh.find("mm_qword_swap", mm_qword_swap);
    const auto lower = fresh.find("Bsu_strlwr", Bsu_strlwr);
    const auto upper = fresh.find("Bsu_strupr", Bsu_strupr);
    const auto build_date = fresh.find("iQV_version_compile_date", iQV_version_compile_date);
    expect_passes_in_child([&] {
        ASSERT_GT(make_data_read_only(reinterpret_cast<const void *>(to_string)), 0u);
        CHAR text[32];
        EXPECT_EQ(to_string(2, text, 3.14159), 4);
        EXPECT_STREQ(text, "3.14");
        EXPECT_EQ(to_string(0, text, 2.5), 1);
        EXPECT_STREQ(text, "3");
        uint64_t x = 0, y = 0;
        EXPECT_EQ(convert_resolution(ZT_RES_UNIT_METER, &x, &y, {72, 1, 0, 0, ZT_RES_UNIT_CENTIMETER}), 0);
        EXPECT_EQ(x, 7200u);
        EXPECT_EQ(y, 0u);
        EXPECT_EQ(to_ppm(72), 2835u);
        EXPECT_EQ(to_dpi(2835), 72u);
        EXPECT_EQ(dword_swap(0x12345678), UINT64_C(0x0012345678563412));
        EXPECT_EQ(qword_swap(0x12345678), INT64_C(0x7856341200000000));
        CHAR letters[] = "MiXeD 123_Z, more than sixteen";
        EXPECT_STREQ(lower(letters), "mixed 123_z, more than sixteen");
        EXPECT_STREQ(upper(letters), "MIXED 123_Z, MORE THAN SIXTEEN");
        EXPECT_NE(build_date(), nullptr);
    });
}
