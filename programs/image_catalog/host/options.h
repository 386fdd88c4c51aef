// The command line.
#pragma once

#include "foundation/types.h"

enum class action { catalogue, help, version, refuse };

struct options {
    action wanted;
    bool as_json;
    uint64_t jobs;  // 0: as many as there are processors
    // The files and folders: those of `arguments` that are not null.
    CHAR **arguments;
    INT argument_count;
};

constexpr uint64_t MOST_JOBS = 256;

// Read the command line; what is no path is replaced by null in `arguments`. A mistake is reported on
// standard error and gives action::refuse.
options read_options(INT argument_count, CHAR **arguments);

extern const CHAR *const help_text;
