#include "options.h"

#include "foundation/os.h"

#include <string.h>

const CHAR *const help_text =
    "Usage: image_catalog [OPTION]... PATH...\n"
    "Catalogue image files: PNG, TIFF, BMP and JPEG, told apart by their contents.\n"
    "\n"
    "Each PATH is a file, or a folder that is searched with everything below it. Links to\n"
    "folders met there are not followed, and files that are no images are counted only.\n"
    "\n"
    "  -j, --jobs N   read N files at once, 1 to 256 (default: one per processor)\n"
    "      --json     print JSON instead of a table\n"
    "  -h, --help     print this text and stop\n"
    "  -V, --version  print the version and stop\n"
    "      --         what follows are paths, even if it begins with a dash\n"
    "\n"
    "Modification dates are UTC. Exit status: 0 all is well, 1 a file had a problem (each is\n"
    "named on standard error), 2 the command line was not understood.\n";

namespace {

struct option_reader {
    options result;
    INT index;
};

bool is_either(const CHAR *argument, const CHAR *short_name, const CHAR *long_name)
{
    return strcmp(argument, short_name) == 0 || strcmp(argument, long_name) == 0;
}

void refuse(option_reader &reader, const CHAR *argument, const CHAR *reason)
{
    OS_message_box(argument, reason);
    reader.result.wanted = action::refuse;
}

// 0 for what is no number from 1 to MOST_JOBS.
uint64_t parse_jobs(const CHAR *text)
{
    uint64_t jobs = 0;
    for (; *text >= '0' && *text <= '9' && jobs <= MOST_JOBS; ++text)
        jobs = 10 * jobs + static_cast<uint64_t>(*text - '0');
    return *text == '\0' && jobs <= MOST_JOBS ? jobs : 0;
}

void read_jobs(option_reader &reader, const CHAR *value)
{
    reader.result.jobs = value != nullptr ? parse_jobs(value) : 0;
    if (reader.result.jobs == 0)
        refuse(reader, "--jobs", "wants a number from 1 to 256");
}

// The argument behind the current one, used up; null when there is none.
const CHAR *take_value(option_reader &reader)
{
    CHAR **arguments = reader.result.arguments;
    if (reader.index + 1 >= reader.result.argument_count)
        return nullptr;
    const CHAR *value = arguments[++reader.index];
    arguments[reader.index] = nullptr;
    return value;
}

void read_option(option_reader &reader, const CHAR *argument)
{
    constexpr CHAR jobs_prefix[] = "--jobs=";
    constexpr uint64_t jobs_prefix_length = sizeof jobs_prefix - 1;
    if (is_either(argument, "-h", "--help"))
        reader.result.wanted = action::help;
    else if (is_either(argument, "-V", "--version"))
        reader.result.wanted = action::version;
    else if (strcmp(argument, "--json") == 0)
        reader.result.as_json = true;
    else if (is_either(argument, "-j", "--jobs"))
        read_jobs(reader, take_value(reader));
    else if (argument[1] == 'j')
        read_jobs(reader, argument + 2);
    else if (strncmp(argument, jobs_prefix, jobs_prefix_length) == 0)
        read_jobs(reader, argument + jobs_prefix_length);
    else
        refuse(reader, argument, "is no option; see image_catalog --help");
}

bool has_path(const options &given)
{
    for (INT i = 0; i < given.argument_count; ++i)
        if (given.arguments[i] != nullptr)
            return true;
    return false;
}

}  // namespace

options read_options(INT argument_count, CHAR **arguments)
{
    option_reader reader = {{action::catalogue, false, 0, arguments, argument_count}, 1};
    bool are_options_over = false;
    if (argument_count > 0)
        arguments[0] = nullptr;  // the program's own name
    for (; reader.index < argument_count && reader.result.wanted == action::catalogue; ++reader.index) {
        CHAR *argument = arguments[reader.index];
        if (are_options_over || argument[0] != '-' || argument[1] == '\0')
            continue;
        arguments[reader.index] = nullptr;
        if (strcmp(argument, "--") == 0)
            are_options_over = true;
        else
            read_option(reader, argument);
    }
    if (reader.result.wanted == action::catalogue && !has_path(reader.result))
        refuse(reader, "image_catalog", "no files or folders given; see image_catalog --help");
    return reader.result;
}
