// Paths from standard input, each ended by a newline or a zero byte.
#pragma once

#include "foundation/types.h"

#include <limits.h>

struct path_input {
    CHAR end_of_path;
    bool is_cut;      // the path just read is longer than PATH_MAX; its beginning was given
    bool has_failed;  // standard input cannot be read
    bool is_at_end;
    uint64_t next;
    uint64_t count;
    CHAR buffer[65536];
};

void path_input_open(path_input &input, CHAR end_of_path);

// The next path that is not empty; false at the end, or when the run is interrupted.
bool path_input_next(path_input &input, CHAR (&path)[PATH_MAX]);
