// Text on its way to a descriptor, and texts made fit for a terminal or for JSON.
#pragma once

#include "foundation/types.h"

constexpr UINT OUTPUT_BUFFER_SIZE = 8192;

struct text_output {
    INT descriptor;
    bool has_failed;  // a write failed; what follows is dropped
    UINT used;
    CHAR buffer[OUTPUT_BUFFER_SIZE];
};

void output_open(text_output &output, INT descriptor);
void output_bytes(text_output &output, const CHAR *bytes, uint64_t count);
void output_text(text_output &output, const CHAR *text);
void output_padding(text_output &output, uint64_t count);
void output_number(text_output &output, uint64_t number);
// A JSON string, quotes included. A byte that is not UTF-8 becomes U+FFFD.
void output_json_string(text_output &output, const CHAR *text);
// Returns false when anything could not be written.
bool output_flush(text_output &output);

// Copy `text` so that a terminal shows it in one line: control characters, and bytes that are not UTF-8, come
// out as "\x1b". Returns the columns it takes; `printable` needs PRINTABLE_BYTES_PER_BYTE times the
// room, and a terminator's.
uint64_t printable_text(const CHAR *text, CHAR *printable);
constexpr uint64_t PRINTABLE_BYTES_PER_BYTE = 4;
