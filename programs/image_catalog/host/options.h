// The command line.
#pragma once

#include "foundation/types.h"

enum class action { catalogue, help, version, refuse };

enum class sort_key { path, name, kind, size, bytes, modified };

constexpr uint64_t MOST_JOBS = 256;
constexpr uint64_t MOST_COLUMNS = 65535;
constexpr UINT MOST_EXCLUDES = 64;

struct options {
    action wanted;
    bool as_json;
    bool is_full;    // the table with everything, however wide it gets
    uint64_t width;  // of the table; 0: as wide as the terminal
    uint64_t jobs;   // 0: as many as there are processors
    sort_key order;
    bool is_reversed;
    bool are_names_null_ended;  // on standard input
    const CHAR *excludes[MOST_EXCLUDES];
    UINT exclude_count;
    // The files and folders: those of `arguments` that are not null. names_from_input is one of them where
    // "-" was given.
    CHAR **arguments;
    INT argument_count;
};

// Stands for the names on standard input. Its address counts, not its text: a file may be called the same.
extern CHAR names_from_input[];

// Read the command line; what is no path is replaced by null in `arguments`. A mistake is reported on
// standard error and gives action::refuse.
options read_options(INT argument_count, CHAR **arguments);

// The names of the kinds stand between the two.
extern const CHAR *const help_beginning;
extern const CHAR *const help_end;
