#include "options.h"

#include "pages.h"
#include "suppressions.h"

#include <stdlib.h>
#include <string.h>

options checker_options;

namespace {

// The value when a line is NAME=VALUE, otherwise null.
const char *value_of(const char *line, const char *name)
{
    const size_t length = strlen(name);
    return strncmp(line, name, length) == 0 && line[length] == '=' ? line + length + 1 : nullptr;
}

// The command appended to the variable's value, or set it: what was there is its first `length` characters.
void restore_variable(const char *name, const char *length)
{
    char *value = getenv(name);
    if (value == nullptr)
        return;
    if (*length == '-')
        unsetenv(name);
    else if (strtoul(length, nullptr, 10) <= strlen(value))
        value[strtoul(length, nullptr, 10)] = '\0';
}

struct environment_lengths {
    const char *preload, *library_path;
};

void take_line(const char *line, environment_lengths *lengths)
{
    checker_options.is_fatal |= strcmp(line, "fatal") == 0;
    checker_options.is_json |= strcmp(line, "json") == 0;
    checker_options.wants_stacks |= strcmp(line, "stacks") == 0;
    if (const char *path = value_of(line, "output"))
        checker_options.output = path;
    if (const char *path = value_of(line, "suppress")) {
        const suppression_error error = load_suppressions(path);
        if (error.reason != nullptr)  // the command has read it before
            abort();
    }
    if (const char *length = value_of(line, "LD_PRELOAD"))
        lengths->preload = length;
    if (const char *length = value_of(line, "LD_LIBRARY_PATH"))
        lengths->library_path = length;
}

}  // namespace

void take_options()
{
    const char *given = getenv(OPTIONS_VARIABLE);
    if (given == nullptr)
        return;
    environment_lengths lengths = {};
    char *text = const_cast<char *>(keep_text(given)), *rest = nullptr;
    for (char *line = strtok_r(text, "\n", &rest); line != nullptr; line = strtok_r(nullptr, "\n", &rest))
        take_line(line, &lengths);
    if (lengths.preload != nullptr) {
        restore_variable("LD_PRELOAD", lengths.preload);
        unsetenv(OPTIONS_VARIABLE);
    }
    if (lengths.library_path != nullptr)
        restore_variable("LD_LIBRARY_PATH", lengths.library_path);
}
