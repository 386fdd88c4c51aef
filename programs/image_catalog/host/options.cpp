#include "options.h"

#include "foundation/os.h"

#include <string.h>

const CHAR *const help_beginning = "Usage: image_catalog [OPTION]... PATH...\n"
                                   "Catalogue image files, told apart by their contents:";

const CHAR *const help_end =
    ".\n"
    "\n"
    "Each PATH is a file, or a folder that is searched with everything below it. Links to\n"
    "folders met there are not followed, and files that are no images are counted only.\n"
    "PATH - stands for the paths on standard input, one to a line.\n"
    "\n"
    "  -x, --exclude PATTERN  leave out files and folders of this name; a pattern with a /\n"
    "                         is compared with the whole path\n"
    "  -s, --sort KEY         path (default), name, kind, size, bytes or modified\n"
    "  -r, --reverse          the other way round\n"
    "      --json             print JSON instead of a table\n"
    "      --full             print every column in full, as into a file or pipe\n"
    "  -w, --width N          fit the table into N columns (default: those of the terminal)\n"
    "  -0, --null             paths on standard input end with a zero byte\n"
    "  -j, --jobs N           read N files at once, 1 to 256 (default: one per processor)\n"
    "  -h, --help             print this text and stop\n"
    "  -V, --version          print the version and stop\n"
    "      --                 what follows are paths, even if it begins with a dash\n"
    "\n"
    "Modification dates are UTC. Exit status: 0 all is well, 1 a file or module had a problem\n"
    "(each is named once), 2 the command line was not understood. Ctrl-C ends the run with\n"
    "what is known so far. See also: man image_catalog.\n";

CHAR names_from_input[] = "-";

namespace {

struct option_reader {
    options result;
    INT index;
};

void refuse(option_reader &reader, const CHAR *argument, const CHAR *reason)
{
    OS_message_box(argument, reason);
    reader.result.wanted = action::refuse;
}

// 0 for what is no number from 1 to `most`.
uint64_t parse_number(const CHAR *text, uint64_t most)
{
    uint64_t number = 0;
    for (; *text >= '0' && *text <= '9' && number <= most; ++text)
        number = 10 * number + static_cast<uint64_t>(*text - '0');
    return *text == '\0' && number <= most ? number : 0;
}

void read_jobs(option_reader &reader, const CHAR *value)
{
    reader.result.jobs = parse_number(value, MOST_JOBS);
    if (reader.result.jobs == 0)
        refuse(reader, "--jobs", "wants a number from 1 to 256");
}

void read_width(option_reader &reader, const CHAR *value)
{
    reader.result.width = parse_number(value, MOST_COLUMNS);
    if (reader.result.width == 0)
        refuse(reader, "--width", "wants a number from 1 to 65535");
}

void read_exclude(option_reader &reader, const CHAR *value)
{
    if (reader.result.exclude_count < MOST_EXCLUDES)
        reader.result.excludes[reader.result.exclude_count++] = value;
    else
        refuse(reader, "--exclude", "is given more than 64 times");
}

void read_order(option_reader &reader, const CHAR *value)
{
    const CHAR *const names[] = {"path", "name", "kind", "size", "bytes", "modified"};
    constexpr sort_key keys[] = {sort_key::path, sort_key::name,  sort_key::kind,
                                 sort_key::size, sort_key::bytes, sort_key::modified};
    for (UINT i = 0; i < sizeof names / sizeof names[0]; ++i) {
        if (strcmp(value, names[i]) == 0) {
            reader.result.order = keys[i];
            return;
        }
    }
    refuse(reader, "--sort", "wants path, name, kind, size, bytes or modified");
}

// An option is a flag, which is set to its action or to true, or takes a value.
struct option_record {
    CHAR short_name;  // zero when it has none
    const CHAR *long_name;
    void (*set)(options &result);
    void (*read)(option_reader &reader, const CHAR *value);
};

const option_record records[] = {
    {'h', "help", [](options &result) { result.wanted = action::help; }, nullptr},
    {'V', "version", [](options &result) { result.wanted = action::version; }, nullptr},
    {'\0', "json", [](options &result) { result.as_json = true; }, nullptr},
    {'\0', "full", [](options &result) { result.is_full = true; }, nullptr},
    {'r', "reverse", [](options &result) { result.is_reversed = true; }, nullptr},
    {'0', "null", [](options &result) { result.are_names_null_ended = true; }, nullptr},
    {'j', "jobs", nullptr, read_jobs},
    {'w', "width", nullptr, read_width},
    {'x', "exclude", nullptr, read_exclude},
    {'s', "sort", nullptr, read_order},
};

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

// `rest` is what stands behind the name in the same argument, "" when nothing does.
void apply(option_reader &reader, const option_record &record, const CHAR *argument, const CHAR *rest)
{
    if (record.set != nullptr && *rest == '\0') {
        record.set(reader.result);
        return;
    }
    const bool has_own_value = *rest == '=' || (argument[1] != '-' && *rest != '\0');
    const CHAR *value = !has_own_value ? take_value(reader) : *rest == '=' ? rest + 1 : rest;
    if (record.set != nullptr)
        refuse(reader, argument, "takes no value; see image_catalog --help");
    else if (value == nullptr)
        refuse(reader, argument, "wants a value; see image_catalog --help");
    else
        record.read(reader, value);
}

void read_option(option_reader &reader, const CHAR *argument)
{
    for (const option_record &record : records) {
        const uint64_t length = strlen(record.long_name);
        if (argument[1] == '-') {
            const CHAR *rest = argument + 2 + length;
            if (strncmp(argument + 2, record.long_name, length) == 0 && (*rest == '\0' || *rest == '=')) {
                apply(reader, record, argument, rest);
                return;
            }
        } else if (argument[1] == record.short_name) {
            apply(reader, record, argument, argument + 2);
            return;
        }
    }
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
    option_reader reader = {};
    reader.result.arguments = arguments;
    reader.result.argument_count = argument_count;
    bool are_options_over = false;
    if (argument_count > 0)
        arguments[0] = nullptr;  // the program's own name
    for (reader.index = 1; reader.index < argument_count && reader.result.wanted == action::catalogue;
         ++reader.index) {
        CHAR *&argument = arguments[reader.index];
        if (are_options_over || argument[0] != '-')
            continue;
        if (argument[1] == '\0') {
            argument = names_from_input;
            continue;
        }
        const CHAR *option = argument;
        argument = nullptr;
        if (strcmp(option, "--") == 0)
            are_options_over = true;
        else
            read_option(reader, option);
    }
    if (reader.result.wanted == action::catalogue && !has_path(reader.result))
        refuse(reader, "image_catalog", "no files or folders given; see image_catalog --help");
    return reader.result;
}
