// What can be told of a module before the dynamic loader touches it: the loader trusts what it is given.
#pragma once

#include "foundation/types.h"

constexpr UINT MODULE_REASON_SIZE = 256;

// Whether `path` is a regular file, and a whole shared object for this processor: one that is cut off would
// kill the program once a missing page of it is used. False with a reason, of MODULE_REASON_SIZE at most.
bool is_loadable_file(const CHAR *path, CHAR *reason);
