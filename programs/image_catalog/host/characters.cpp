#include "characters.h"

#include "foundation/os.h"

#include <wchar.h>

namespace {

struct encoding {
    BYTE lead_mask;
    BYTE lead;
    uint32_t bytes;
    uint32_t lowest_code;  // a smaller one has a shorter form
};

const encoding encodings[] = {
    {0x80, 0x00, 1, 0},
    {0xE0, 0xC0, 2, 0x80},
    {0xF0, 0xE0, 3, 0x800},
    {0xF8, 0xF0, 4, 0x10000},
};

struct code_range {
    uint32_t first;
    uint32_t last;
};

/* Characters that a terminal shows as nothing, or that change the order of others (Unicode's
 * Default_Ignorable_Code_Point, with separators of lines and annotations). The C library calls most of them
 * printable. */
const code_range invisible[] = {
    {0x00AD, 0x00AD},   {0x034F, 0x034F},   {0x061C, 0x061C}, {0x115F, 0x1160}, {0x17B4, 0x17B5},
    {0x180B, 0x180F},   {0x200B, 0x200F},   {0x2028, 0x202E}, {0x2060, 0x206F}, {0x3164, 0x3164},
    {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0}, {0xFFF0, 0xFFFB}, {0x1BCA0, 0x1BCA3},
    {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
};

bool is_encodable(uint32_t code)
{
    constexpr uint32_t first_surrogate = 0xD800;
    constexpr uint32_t last_surrogate = 0xDFFF;
    return code <= 0x10FFFF && !(code >= first_surrogate && code <= last_surrogate);
}

// The terminator is no continuation byte, so reading ends there at the latest.
character decode(const CHAR *text, const encoding &form)
{
    const character invalid = {0, 1, false};
    auto code = static_cast<uint32_t>(static_cast<BYTE>(text[0]) & ~form.lead_mask & 0xFF);
    for (uint32_t i = 1; i < form.bytes; ++i) {
        const auto byte = static_cast<BYTE>(text[i]);
        if ((byte & 0xC0) != 0x80)
            return invalid;
        code = code << 6 | (byte & 0x3F);
    }
    if (code < form.lowest_code || !is_encodable(code))
        return invalid;
    return {code, form.bytes, true};
}

bool is_invisible(uint32_t code)
{
    for (const code_range &range : invisible)
        if (code >= range.first && code <= range.last)
            return true;
    return false;
}

// The columns of a character that can be shown as it is; -1 for any other.
INT columns_of(uint32_t code)
{
    constexpr uint32_t end_of_ascii = 0x7F;
    if (code < end_of_ascii)
        return code >= ' ' && code != '\\' ? 1 : -1;
    return is_invisible(code) ? -1 : wcwidth(static_cast<wchar_t>(code));
}

// Of what printable_text has let through.
uint64_t printed_columns(const character &next)
{
    return static_cast<uint64_t>(wcwidth(static_cast<wchar_t>(next.code)));
}

INT write_escape(const character &next, const CHAR *text, CHAR *escape)
{
    if (!next.is_valid)
        return OS_sprintf(escape, "\\x%02x", static_cast<BYTE>(*text));
    if (next.code == '\\')
        return OS_sprintf(escape, "\\\\");
    if (next.code < 0x80)
        return OS_sprintf(escape, "\\x%02x", next.code);
    return OS_sprintf(escape, next.code <= 0xFFFF ? "\\u%04x" : "\\U%08x", next.code);
}

}  // namespace

character first_character(const CHAR *text)
{
    for (const encoding &form : encodings)
        if ((static_cast<BYTE>(text[0]) & form.lead_mask) == form.lead)
            return decode(text, form);
    return {0, 1, false};
}

bool is_utf8(const CHAR *text)
{
    while (*text != '\0') {
        const character next = first_character(text);
        if (!next.is_valid)
            return false;
        text += next.bytes;
    }
    return true;
}

bool is_control(uint32_t code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

uint64_t printable_text(const CHAR *text, CHAR *printable)
{
    uint64_t columns = 0;
    while (*text != '\0') {
        const character next = first_character(text);
        const INT width = next.is_valid ? columns_of(next.code) : -1;
        INT length = static_cast<INT>(next.bytes);
        if (width >= 0)
            OS_memcpy(printable, text, next.bytes);
        else
            length = write_escape(next, text, printable);
        columns += static_cast<uint64_t>(width >= 0 ? width : length);
        printable += length;
        text += next.bytes;
    }
    *printable = '\0';
    return columns;
}

uint64_t columns_of_text(const CHAR *printable)
{
    uint64_t columns = 0;
    for (; *printable != '\0'; printable += first_character(printable).bytes)
        columns += printed_columns(first_character(printable));
    return columns;
}

const CHAR *last_columns(const CHAR *printable, uint64_t columns)
{
    uint64_t rest = columns_of_text(printable);
    while (*printable != '\0') {
        const character next = first_character(printable);
        const uint64_t width = printed_columns(next);
        // A mark without a column of its own goes with the character in front of it.
        if (rest <= columns && width != 0)
            break;
        rest -= width;
        printable += next.bytes;
    }
    return printable;
}
