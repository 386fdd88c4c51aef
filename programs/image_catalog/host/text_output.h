// Text on its way to a descriptor.
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
// Returns false when anything could not be written.
bool output_flush(text_output &output);
