// One file: open it, recognise it, read it, and have its module say what it holds.
#pragma once

#include "catalogue.h"
#include "memory_budget.h"
#include "module_set.h"

struct image_reader {
    catalogue *files;
    module_set *modules;
    memory_budget *budget;
};

// Fill `entry` and give it its state; it stays pending when the run is interrupted meanwhile. Every block of
// the work is released on return.
void read_image_file(const image_reader &reader, catalogue_entry *entry);

// List `entry` with the problem "WHAT: the platform's own words", from errno.
void list_platform_problem(catalogue *files, catalogue_entry *entry, const CHAR *what);
