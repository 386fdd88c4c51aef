// The date of the library's build.

#include "foundation/util.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <time.h>

#include <string>
#include <thread>

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

TEST(BuildDate, IsTheSamePointerOnEveryCallAndThread)
{
    const CHAR *const first = iQV_version_compile_date();
    const CHAR *of_another_thread = nullptr;
    std::thread([&] { of_another_thread = iQV_version_compile_date(); }).join();
    EXPECT_EQ(of_another_thread, first);
    EXPECT_EQ(iQV_version_compile_date(), first);
}
