// Identifier texts, gaps and case: everything that looks at single characters.

#include "foundation/os.h"
#include "foundation/util.h"

#include "fuzz/target.h"

namespace {

int hexadecimal_digit(char character)
{
    const std::string digits = "0123456789abcdef";
    const bool is_upper_case = character >= 'A' && character <= 'F';
    const size_t place = digits.find(static_cast<char>(is_upper_case ? character + 0x20 : character));
    return place != std::string::npos ? static_cast<int>(place) : -1;
}

// One digit behind white space or a sign, else the digits there are.
BYTE expected_byte(char first, char second)
{
    const int low = hexadecimal_digit(second);
    const int high = hexadecimal_digit(first);
    if (high >= 0)
        return static_cast<BYTE>(low >= 0 ? high * 16 + low : high);
    const bool is_led_by_gap = first != '\0' && strchr(" \t\n\v\f\r+", first) != nullptr;
    if (low < 0 || !(is_led_by_gap || first == '-'))
        return 0;
    return static_cast<BYTE>(first == '-' ? -low : low);
}

void check_byte(const std::string &pair)
{
    guarded_bytes bytes(pair.data(), pair.size());
    require_equal("the byte", unsigned{parseHexByteString(bytes.text())},
                  unsigned{expected_byte(pair[0], pair[1])});
}

void check_guid(const std::string &guid)
{
    guarded_bytes bytes(guid.data(), guid.size());
    guarded_bytes text(33);
    memset(text.data(), '#', text.size());
    require_equal("the result", OS_guid_to_string(bytes.data(), text.text()), 0);
    require_equal("the text's length", strlen(text.text()), 32u);
    for (size_t i = 0; i < guid.size(); ++i) {
        require(hexadecimal_digit(text.text()[2 * i]) == bytes.data()[i] / 16,
                "the first digit is the high one");
        require_equal("the byte read back", unsigned{parseHexByteString(text.text() + 2 * i)},
                      unsigned{bytes.data()[i]});
        require(strpbrk(text.text(), "ABCDEF") == nullptr, "digits are lower case");
    }
    require_equal("the result without a text", OS_guid_to_string(bytes.data(), nullptr), -1);
    require_equal("the result without an identifier", OS_guid_to_string(nullptr, text.text()), -1);
}

// The last character ends both searches, and nothing may be read behind it.
void check_gaps(const std::string &text)
{
    const auto is_gap = [](char character) {
        return character == ' ' || character == '\t';
    };
    guarded_bytes ends_in_word((text + 'x').data(), text.size() + 1);
    const CHAR *cursor = ends_in_word.text();
    gap_ignore(&cursor);
    require_equal("the length of the gap", cursor - ends_in_word.text(),
                  std::find_if_not(text.begin(), text.end(), is_gap) - text.begin());
    guarded_bytes ends_in_gap((text + '\t').data(), text.size() + 1);
    cursor = ends_in_gap.text();
    non_gap_ignore(&cursor);
    require_equal("the length of the word", cursor - ends_in_gap.text(),
                  std::find_if(text.begin(), text.end(), is_gap) - text.begin());
}

void check_case(const std::string &text, CHAR *(*change)(CHAR *), const char *from, const char *to)
{
    std::string expected = text + '\0';
    for (char &character : expected)
        if (const char *place = strchr(from, character); place != nullptr && character != '\0')
            character = to[place - from];
    guarded_bytes bytes(text.c_str(), text.size() + 1);
    require(change(bytes.text()) == bytes.text(), "the text itself is returned");
    require_equal("the changed text", content(bytes), expected);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static constexpr const char *UPPER = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    static constexpr const char *LOWER = "abcdefghijklmnopqrstuvwxyz";
    byte_source source(data, size);
    std::string guid = source.take_bytes(16);
    guid.resize(16);
    check_guid(guid);
    check_byte(guid.substr(0, 2));
    check_gaps(source.take_bytes(100));
    const std::string text = source.take_text(300);
    check_case(text, Bsu_strlwr, UPPER, LOWER);
    check_case(text, Bsu_strupr, LOWER, UPPER);
    return 0;
}
