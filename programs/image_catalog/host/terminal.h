// What the terminal shows, and how much of it.
#pragma once

#include "foundation/types.h"

// The width of the terminal behind `descriptor`; 0 when it is none. Where it does not say, COLUMNS does,
// or 80.
uint64_t terminal_columns(INT descriptor);

// Make the C library's tables of characters those of UTF-8: the user's locale where it is of that encoding,
// else the neutral one. Call once, before reporting.
void terminal_use_utf8();
