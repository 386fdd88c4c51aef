// One file: open it, recognise it, read it, and have its module say what it holds.
#pragma once

#include "catalogue.h"
#include "module_set.h"

struct image_reader {
    module_set *modules;
    LPVOID large_files;  // a mutex identifier: one large file is in memory at a time
};

// Fill `report`. Returns false for a file that is no image and was not `named`: it has no place in the
// catalogue. Every block of the work is released on return.
bool read_image_file(const image_reader &reader, const CHAR *path, bool named, file_report &report);

// The reason "WHAT: the platform's own words", from errno.
void report_platform_problem(file_report &report, const CHAR *what);
