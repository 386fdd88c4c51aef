#include "path_input.h"

#include "foundation/os.h"
#include "interrupt.h"

#include <errno.h>

namespace {

constexpr INT STANDARD_INPUT = 0;

// False at the end.
bool fill(path_input &input)
{
    LONG count = 0;
    do
        count = interrupt_wait_for_input(STANDARD_INPUT)
                    ? OS_read(STANDARD_INPUT, input.buffer, sizeof input.buffer)
                    : 0;
    while (count < 0 && errno == EINTR);
    input.has_failed = count < 0;
    input.is_at_end = count <= 0;
    input.next = 0;
    input.count = count > 0 ? static_cast<uint64_t>(count) : 0;
    return !input.is_at_end;
}

bool next_character(path_input &input, CHAR &character)
{
    if (input.is_at_end || (input.next == input.count && !fill(input)))
        return false;
    character = input.buffer[input.next++];
    return true;
}

// One path, perhaps an empty one; returns its length.
uint64_t read_path(path_input &input, CHAR (&path)[PATH_MAX])
{
    uint64_t length = 0;
    CHAR character = '\0';
    input.is_cut = false;
    while (next_character(input, character) && character != input.end_of_path) {
        if (length + 1 < sizeof path)
            path[length++] = character;
        else
            input.is_cut = true;
    }
    path[length] = '\0';
    return length;
}

}  // namespace

void path_input_open(path_input &input, CHAR end_of_path)
{
    input.end_of_path = end_of_path;
    input.is_cut = input.has_failed = input.is_at_end = false;
    input.next = input.count = 0;
}

bool path_input_next(path_input &input, CHAR (&path)[PATH_MAX])
{
    while (!input.is_at_end && !is_interrupted())
        if (read_path(input, path) != 0)
            return true;
    return false;
}
