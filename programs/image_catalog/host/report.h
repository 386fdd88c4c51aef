// The catalogue on standard output, as a table or as JSON, and its problems on standard error.
#pragma once

#include "catalogue.h"

// Both return false when standard output does not take them, or there is no memory.
bool report_table(const catalogue *files);
bool report_json(const catalogue *files);

// A line for each problem, in the order of the paths. Returns false when there was one.
bool report_problems(const catalogue *files);
