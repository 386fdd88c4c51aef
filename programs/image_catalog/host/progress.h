// "n of m files" on standard error, where that is a terminal and the run takes its time.
#pragma once

#include "foundation/types.h"

struct progress {
    bool is_terminal;
    bool is_shown;
    double last_time;  // epoch seconds
};

void progress_open(progress &display);
// Threads: one at a time.
void progress_update(progress &display, uint64_t done, uint64_t known);
// Take the line away, so that what follows stands alone.
void progress_close(progress &display);
