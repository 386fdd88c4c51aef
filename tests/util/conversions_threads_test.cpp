// Conversions on several threads at once: whatever one of them kept would show in another's results.

#include "util/conversions_fixture.h"

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
