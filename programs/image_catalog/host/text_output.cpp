#include "text_output.h"

#include "foundation/os.h"

#include <errno.h>
#include <string.h>

namespace {

// A character of a UTF-8 text. A byte that begins none is a character of its own, not valid.
struct character {
    uint32_t code;
    uint32_t bytes;
    bool is_valid;
};

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

character first_character(const CHAR *text)
{
    for (const encoding &form : encodings)
        if ((static_cast<BYTE>(text[0]) & form.lead_mask) == form.lead)
            return decode(text, form);
    return {0, 1, false};
}

bool is_control(uint32_t code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

void write_all(text_output &output)
{
    UINT done = 0;
    while (done < output.used && !output.has_failed) {
        const LONG step = OS_write(output.descriptor, output.buffer + done, output.used - done);
        if (step > 0)
            done += static_cast<UINT>(step);
        else
            output.has_failed = step == 0 || errno != EINTR;
    }
    output.used = 0;
}

}  // namespace

void output_open(text_output &output, INT descriptor)
{
    output.descriptor = descriptor;
    output.has_failed = false;
    output.used = 0;
}

void output_bytes(text_output &output, const CHAR *bytes, uint64_t count)
{
    while (count > 0) {
        if (output.used == OUTPUT_BUFFER_SIZE)
            write_all(output);
        const uint64_t room = OUTPUT_BUFFER_SIZE - output.used;
        const uint64_t piece = count < room ? count : room;
        OS_memcpy(output.buffer + output.used, bytes, piece);
        output.used += static_cast<UINT>(piece);
        bytes += piece;
        count -= piece;
    }
}

void output_text(text_output &output, const CHAR *text)
{
    output_bytes(output, text, strlen(text));
}

void output_padding(text_output &output, uint64_t count)
{
    for (; count > 0; --count)
        output_bytes(output, " ", 1);
}

void output_number(text_output &output, uint64_t number)
{
    CHAR text[24];
    OS_sprintf(text, "%llu", static_cast<unsigned long long>(number));
    output_text(output, text);
}

void output_json_string(text_output &output, const CHAR *text)
{
    output_text(output, "\"");
    while (*text != '\0') {
        const character next = first_character(text);
        CHAR escape[8];
        if (!next.is_valid) {
            output_text(output, "\\ufffd");
        } else if (is_control(next.code)) {
            OS_sprintf(escape, "\\u%04x", next.code);
            output_text(output, escape);
        } else {
            if (*text == '"' || *text == '\\')
                output_text(output, "\\");
            output_bytes(output, text, next.bytes);
        }
        text += next.bytes;
    }
    output_text(output, "\"");
}

bool output_flush(text_output &output)
{
    write_all(output);
    return !output.has_failed;
}

uint64_t printable_text(const CHAR *text, CHAR *printable)
{
    uint64_t columns = 0;
    while (*text != '\0') {
        const character next = first_character(text);
        if (next.is_valid && !is_control(next.code)) {
            OS_memcpy(printable, text, next.bytes);
            printable += next.bytes;
            ++columns;
        } else {
            for (uint32_t i = 0; i < next.bytes; ++i) {
                const INT length = OS_sprintf(printable, "\\x%02x", static_cast<BYTE>(text[i]));
                printable += length;
                columns += static_cast<uint64_t>(length);
            }
        }
        text += next.bytes;
    }
    *printable = '\0';
    return columns;
}
