// Texts of whatever bytes, read as UTF-8 and made fit for a terminal.
#pragma once

#include "foundation/types.h"

// A character of a text. A byte that begins none is a character of its own, not valid.
struct character {
    uint32_t code;
    uint32_t bytes;
    bool is_valid;
};

// The first character of a text that is not empty.
character first_character(const CHAR *text);

bool is_utf8(const CHAR *text);

// C0, DEL and C1.
bool is_control(uint32_t code);

// Copy `text` so that a terminal shows all of it in one line, and no two texts alike but for the shapes of
// their letters: a byte that is not UTF-8 comes out as "\xfc"; a character that controls, orders or takes
// no place, as "\x1b", "\u202e" or "\U000e0001"; a backslash doubled. Returns the columns it takes;
// `printable` needs PRINTABLE_BYTES_PER_BYTE times the room, and a terminator's.
uint64_t printable_text(const CHAR *text, CHAR *printable);
constexpr uint64_t PRINTABLE_BYTES_PER_BYTE = 4;

// Of text that is printable already.
uint64_t columns_of_text(const CHAR *printable);

// The beginning of printable text's last `columns` columns at most, where no character is cut.
const CHAR *last_columns(const CHAR *printable, uint64_t columns);
