// The catalogue on standard output, as a table or as JSON. Each problem is said once: in a table's run on
// standard error, in JSON in the entry or module that it belongs to.
#pragma once

#include "catalogue.h"
#include "module_set.h"

struct report_source {
    const catalogue *files;
    const module_set *modules;
    bool is_interrupted;
};

// Each returns false when standard output does not take it, or there is no memory.
bool report_table(const report_source &source, const options &given);
bool report_totals(const report_source &source);
bool report_json(const report_source &source);

// A line for each problem of a file, in the order of the table, and of a module. False without memory.
bool report_problems(const report_source &source);

bool has_problems(const report_source &source);
