// What the command asked for. It passes the library one text in the environment, an option a line.
#pragma once

constexpr char OPTIONS_VARIABLE[] = "QV_CHECK_OPTIONS";

struct options {
    bool is_fatal;
    bool is_json;
    bool wants_stacks;
    const char *output;  // an absolute path; null for the standard error stream
};

extern options checker_options;

// Read them, and load the suppressions they name. Takes what the command put into the environment back out,
// unless the programs that this one starts are to be checked as well.
void take_options();
