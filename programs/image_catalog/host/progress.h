// "45% of 120 files" on standard error, where that is a terminal and the run takes its time.
#pragma once

#include "foundation/types.h"

struct progress {
    bool is_terminal;
    uint64_t columns_shown;
    uint64_t last_time;  // in tenths of a second
};

void progress_open(progress &display);
// `known` files so far, and all of them when the search `is_complete`. Threads: one at a time.
void progress_update(progress &display, uint64_t done, uint64_t known, bool is_complete);
// Take the line away, so that what follows stands alone.
void progress_close(progress &display);
