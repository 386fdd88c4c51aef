// Names of addresses, for people.
#pragma once

#include <stdint.h>

struct symbol {
    const char *function;  // null when it cannot be told
    uint64_t offset;
    const char *object;  // null when it cannot be told
};

// What lies at an address. The texts are the loader's, or kept. Not under the lock: it asks the loader.
symbol symbol_at(uintptr_t address);

// Whether an address lies in the checker.
bool is_own_code(uintptr_t address);
