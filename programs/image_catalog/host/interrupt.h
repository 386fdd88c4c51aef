// Ctrl-C, or a request to terminate, ends the run with what is known so far. A second one ends it at once.
#pragma once

#include "foundation/types.h"

// From here on a signal is remembered instead of ending the program.
void interrupt_catch();

// Threads: may be called from any.
bool is_interrupted();

// Wait until there is something to read, or nothing more; false when the run is interrupted before.
bool interrupt_wait_for_input(INT descriptor);

// End the program by the signal that was remembered, so that a shell sees what ended it; return when there
// was none.
void interrupt_obey();

// Signals reach the thread that reads names, which may wait for one, and no other: blocked while those are
// started, which inherit it.
class interrupts_blocked {
public:
    interrupts_blocked();
    ~interrupts_blocked();
    interrupts_blocked(const interrupts_blocked &) = delete;
    interrupts_blocked &operator=(const interrupts_blocked &) = delete;
};
