// image_catalog: a table of image files, made with the foundation library and four companion modules.

#include "catalogue.h"
#include "folder_walk.h"
#include "foundation/util.h"
#include "image_file.h"
#include "interrupt.h"
#include "options.h"
#include "report.h"
#include "terminal.h"
#include "text_output.h"
#include "work_crew.h"

namespace {

constexpr INT STATUS_GOOD = 0;
constexpr INT STATUS_PROBLEM = 1;
constexpr INT STATUS_REFUSED = 2;

constexpr INT STANDARD_OUTPUT = 1;

INT report_failure(const CHAR *reason)
{
    OS_message_box("image_catalog", reason);
    return STATUS_PROBLEM;
}

INT print_all(text_output &output)
{
    return output_flush(output) ? STATUS_GOOD : report_failure("standard output cannot be written");
}

INT print_help()
{
    text_output output;
    output_open(output, STANDARD_OUTPUT);
    output_text(output, help_beginning);
    for (image_kind kind = 0; kind < IMAGE_KIND_COUNT; ++kind) {
        output_text(output, kind == 0 ? " " : ", ");
        output_text(output, name_of_kind(kind));
    }
    output_text(output, help_end);
    return print_all(output);
}

INT print_version()
{
    CHAR line[128];
    OS_sprintf(line, "image_catalog %s (foundation library built %s)\n", IMAGE_CATALOG_VERSION,
               iQV_version_compile_date());
    text_output output;
    output_open(output, STANDARD_OUTPUT);
    output_text(output, line);
    return print_all(output);
}

// The objects of a run, each null until it is made.
struct run {
    memory_owner owner;
    memory_owner catalogue_owner;
    catalogue *files = nullptr;
    image_reader reader = {};
    work_crew *crew = nullptr;
};

uint64_t job_count(const options &given)
{
    if (OS_threads_support() == 0)
        return 1;
    return given.jobs != 0 ? given.jobs : static_cast<uint64_t>(OS_processor_count());
}

bool open_run(run &objects, const options &given)
{
    objects.files = catalogue_open(objects.catalogue_owner);
    objects.reader = {objects.files, modules_open(objects.owner), budget_open(objects.owner)};
    if (objects.files == nullptr || objects.reader.modules == nullptr || objects.reader.budget == nullptr)
        return false;
    objects.crew = crew_open(objects.owner, objects.reader, job_count(given));
    return objects.crew != nullptr;
}

// False when the names on standard input cannot be read.
bool read_all(const run &objects, const options &given)
{
    bool ok = true;
    for (INT i = 0; i < given.argument_count && !is_interrupted(); ++i) {
        if (given.arguments[i] == names_from_input)
            ok = walk_standard_input(given, objects.crew, objects.files) && ok;
        else if (given.arguments[i] != nullptr)
            walk_path(given.arguments[i], given, objects.crew, objects.files);
    }
    crew_finish(objects.crew);
    return ok;
}

bool print_catalogue(const report_source &source, const options &given)
{
    if (given.as_json)
        return report_json(source);
    terminal_use_utf8();
    return report_table(source, given) && report_problems(source) && report_totals(source);
}

INT report_all(const run &objects, const options &given)
{
    if (!catalogue_finish(objects.files, given.order, given.is_reversed))
        return report_failure("out of memory");
    const report_source source = {objects.files, objects.reader.modules, is_interrupted()};
    INT status = has_problems(source) ? STATUS_PROBLEM : STATUS_GOOD;
    if (!print_catalogue(source, given))
        status = report_failure("the catalogue cannot be written to standard output");
    if (catalogue_count(objects.files).lost != 0)
        status = report_failure("out of memory: entries are missing");
    return status;
}

void close_run(run &objects)
{
    if (objects.reader.budget != nullptr)
        budget_close(objects.reader.budget);
    if (objects.reader.modules != nullptr)
        modules_close(objects.reader.modules);
    if (objects.files != nullptr)
        catalogue_close(objects.files);
}

INT make_catalogue(const options &given)
{
    run objects;
    INT status = STATUS_PROBLEM;
    if (open_run(objects, given)) {
        const bool has_names = read_all(objects, given);
        status = report_all(objects, given);
        if (!has_names)
            status = report_failure("the names on standard input cannot be read");
    } else {
        report_failure("out of memory");
    }
    close_run(objects);
    return status;
}

INT report_leak(LONG blocks)
{
    CHAR reason[64];
    OS_sprintf(reason, "%lld blocks of memory were never released", static_cast<long long>(blocks));
    return report_failure(reason);
}

INT run_with_memory(const options &given)
{
    if (!memory_open())
        return report_failure("out of memory");
    const INT status = make_catalogue(given);
    const LONG leaked_blocks = memory_close();
    return leaked_blocks == 0 ? status : report_leak(leaked_blocks);
}

}  // namespace

int main(int argument_count, char **arguments)
{
    const options given = read_options(argument_count, arguments);
    switch (given.wanted) {
    case action::help:
        return print_help();
    case action::version:
        return print_version();
    case action::refuse:
        return STATUS_REFUSED;
    case action::catalogue:
        break;
    }
    interrupt_catch();
    const INT status = run_with_memory(given);
    interrupt_obey();
    return status;
}
