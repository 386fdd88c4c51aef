// Date ordinals: coarse keys for comparisons, in which a month has 30 days and a year 356.

#include "time/dates_fixture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

static_assert(has_type<LONG(const CHAR *)>(cal_ord_ref_date_from_DATE));

namespace {

LONG ordinal(const std::string &text)
{
    return cal_ord_ref_date_from_DATE(at_border(text));
}

const std::vector<month_rule> ordinal_rules = {
    {"Ja?", 0},  {"J?n", 150}, {"J??", 180}, {"F??", 30},  {"M?r", 60},  {"M??", 120},
    {"Ap?", 90}, {"A??", 210}, {"S??", 240}, {"O??", 270}, {"N??", 300}, {"???", 330},
};

}  // namespace

TEST(DateOrdinal, CountsTheDaysOfItsFirstMonth)
{
    EXPECT_EQ(ordinal("Jan 01 1900"), 1);
    EXPECT_EQ(ordinal("Jan 31 1900"), 31);
}

TEST(DateOrdinal, CountsThirtyDaysForEachMonthBefore)
{
    for (size_t month = 0; month < 12; ++month)
        EXPECT_EQ(ordinal(month_texts[month] + " 01 1900"), static_cast<LONG>(30 * month + 1))
            << month_texts[month];
}

TEST(DateOrdinal, Counts356DaysForEachYearSince1900)
{
    EXPECT_EQ(ordinal("Jan 01 1901"), 357);
    EXPECT_EQ(ordinal("Jan 01 1899"), -355);
    EXPECT_EQ(ordinal("Dec 31 2025"), 44861);
    EXPECT_EQ(ordinal("Jan 01 2026"), 44857);
    EXPECT_EQ(ordinal("Jan 01 0000"), -676399);
    EXPECT_EQ(ordinal("Dec 31 9999"), 2883605);
}

TEST(DateOrdinal, PlacesTheLastDaysOfDecemberAboveTheNextFirstOfJanuary)
{
    const LONG first_of_january = ordinal("Jan 01 2026");
    for (const char *text : {"Dec 28 2025", "Dec 29 2025", "Dec 30 2025", "Dec 31 2025"})
        EXPECT_GT(ordinal(text), first_of_january) << text;
    EXPECT_EQ(ordinal("Dec 27 2025"), first_of_january);
    EXPECT_LT(ordinal("Dec 26 2025"), first_of_january);
}

TEST(DateOrdinal, EqualsTheNextFirstOnThe31st)
{
    EXPECT_EQ(ordinal("Jan 31 2026"), ordinal("Feb 01 2026"));
    EXPECT_EQ(ordinal("Oct 31 2026"), ordinal("Nov 01 2026"));
}

TEST(DateOrdinal, TellsMonthsFromTheFewLettersThatItTests)
{
    EXPECT_EQ(ordinal("Jax 01 1900"), 1);
    EXPECT_EQ(ordinal("Jxn 01 1900"), 151);
    EXPECT_EQ(ordinal("Jxx 01 1900"), 181);
    EXPECT_EQ(ordinal("Fxx 01 1900"), 31);
    EXPECT_EQ(ordinal("Mxr 01 1900"), 61);
    EXPECT_EQ(ordinal("Mxx 01 1900"), 121);
    EXPECT_EQ(ordinal("Apx 01 1900"), 91);
    EXPECT_EQ(ordinal("Axx 01 1900"), 211);
    EXPECT_EQ(ordinal("Sxx 01 1900"), 241);
    EXPECT_EQ(ordinal("Oxx 01 1900"), 271);
    EXPECT_EQ(ordinal("Nxx 01 1900"), 301);
    EXPECT_EQ(ordinal("Dxx 01 1900"), 331);
    EXPECT_EQ(ordinal("xxx 01 1900"), 331);
    EXPECT_EQ(ordinal("jan 01 1900"), 331);
}

TEST(DateOrdinal, FollowsTheTestedLettersOfEveryText)
{
    for (const std::string &letters : three_letter_texts())
        ASSERT_EQ(ordinal(letters + " 15 1900"), value_by(ordinal_rules, letters) + 15) << letters;
}

TEST(DateOrdinal, FollowsTheTestedLettersWhateverCharacterIsWrong)
{
    for (const std::string &letters : months_with_one_wrong_letter())
        ASSERT_EQ(ordinal(letters + " 15 1900"), value_by(ordinal_rules, letters) + 15)
            << testing::PrintToString(letters);
}

TEST(DateOrdinal, DoesNotTestTheLength)
{
    EXPECT_EQ(ordinal(std::string("Feb\0"
                                  "02 1901",
                                  11)),
              356 + 2 + 30);
    EXPECT_EQ(ordinal(std::string("Feb 02 190\0", 11)), -48 * 356 + 2 + 30);
}

TEST(DateOrdinal, IgnoresWhatFollowsTheText)
{
    EXPECT_EQ(cal_ord_ref_date_from_DATE("Jan 01 19001234"), 1);
}

TEST(DateOrdinal, CountsASpaceInFrontOfTheDayAsNothing)
{
    EXPECT_EQ(ordinal("Jan  9 1900"), 9);
    EXPECT_EQ(ordinal("Jan 09 1900"), 9);
}

// ':' is ten, '/' minus one and a space minus sixteen. A character above 0x7f is a negative number: 0xff
// is -1, so it counts as -49, and 0x80, which is -128, as -176.
TEST(DateOrdinal, TakesAnyCharacterForADigit)
{
    EXPECT_EQ(ordinal("Jan :: 1900"), 110);
    EXPECT_EQ(ordinal("Jan 1  1900"), 10 - 16);
    EXPECT_EQ(ordinal("Jan 01 189:"), 1);
    EXPECT_EQ(ordinal("Jan 01 1/:0"), (1000 - 100 + 100 - 1900) * 356 + 1);
    EXPECT_EQ(ordinal("Jan \xff"
                      "5 1900"),
              -490 + 5);
    EXPECT_EQ(ordinal("Jan 0\x80 1900"), -176);
    EXPECT_EQ(ordinal("Jan 01 \x80\x80\x80\x80"), (-176 * 1111 - 1900) * 356 + 1);
}
