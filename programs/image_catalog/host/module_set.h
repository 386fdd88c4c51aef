// The companion modules, each loaded when the first file of its kind turns up.
#pragma once

#include "catalog_memory.h"
#include "image_kind.h"
#include "image_module.h"

struct module_set;

// Null when there is no memory.
module_set *modules_open(memory_owner &owner);
// Unload what was loaded. The set's memory goes with its owner.
void modules_close(module_set *modules);

// The reading function of the module for `kind`; null when it is not to be had.
// Threads: may be called from any.
IMAGE_MODULE_READ modules_reader(module_set *modules, image_kind kind);

constexpr UINT MODULE_FILE_NAME_SIZE = 64;
void module_file_name(image_kind kind, CHAR *name);

// For reporting: why the module for `kind` could not be used; null when it could, or was not needed.
const CHAR *modules_problem(const module_set *modules, image_kind kind);
