// ASCII case of texts of every length, in memory that ends where they do.

#include "foundation/util.h"

#include "support/guarded_bytes.h"

#include <gtest/gtest.h>

#include <string.h>

#include <string>

namespace {

std::string text_of(size_t length, size_t first_character)
{
    std::string text(length, '\0');
    for (size_t i = 0; i < length; ++i)
        text[i] = static_cast<char>(1 + (first_character + i) % 255);
    return text;
}

std::string with_offset(std::string text, char first, char last, int offset)
{
    for (char &character : text)
        if (character >= first && character <= last)
            character = static_cast<char>(character + offset);
    return text;
}

}  // namespace

TEST(CaseChangeAtEveryPlace, ReachesEveryCharacterAtEveryPlace)
{
    for (size_t length = 0; length <= 80; ++length)
        for (size_t first_character = 0; first_character < 255; ++first_character) {
            const std::string text = text_of(length, first_character);
            std::string changed = text;
            Bsu_strlwr(changed.data());
            ASSERT_EQ(changed, with_offset(text, 'A', 'Z', 'a' - 'A')) << length << ", " << first_character;
            changed = text;
            Bsu_strupr(changed.data());
            ASSERT_EQ(changed, with_offset(text, 'a', 'z', 'A' - 'a')) << length << ", " << first_character;
        }
}

TEST(CaseChangeAtEveryPlace, TouchesNothingBehindTheText)
{
    for (size_t length = 0; length <= 300; ++length) {
        const std::string text = text_of(length, length);
        guarded_bytes guarded(text.c_str(), length + 1);
        EXPECT_EQ(Bsu_strupr(guarded.text()), guarded.text());
        EXPECT_STREQ(guarded.text(), with_offset(text, 'a', 'z', 'A' - 'a').c_str());
    }
}

TEST(CaseChangeAtEveryPlace, TouchesNothingInFrontOfTheText)
{
    for (size_t length = 0; length <= 40; ++length) {
        std::string all = "abc" + std::string(length, 'x');
        Bsu_strupr(&all[3]);
        EXPECT_EQ(all, "abc" + std::string(length, 'X'));
    }
}
