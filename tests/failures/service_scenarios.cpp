// Failures of the heap wrappers, path joining, modules, process facts and identifiers.

#include "failures/scenario.h"
#include "memory/dt_types_memory_fixture.h"

#include "foundation/os.h"

#include <ctype.h>
#include <fcntl.h>
#include <sched.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr CHAR UNTOUCHED[] = "################";

LPVOID block;
LPVOID answer;
LONG number;
CHAR text[64];

void untouched_text()
{
    strcpy(text, UNTOUCHED);
}

std::string null_or_not()
{
    return answer != nullptr ? "a block" : "null";
}

// ---- Heap

scenarios heap_wrappers()
{
    return {
        {.name = "OS_alloc",
         .act = [] { answer = OS_alloc(10); },
         .result = null_or_not,
         .clean_up = [] { OS_free(answer); },
         .outcomes = {{"nothing", "a block", 10}, {"allocation 1", "null"}}},
        {.name = "OS_realloc of null",
         .act = [] { answer = OS_realloc(nullptr, 10); },
         .result = null_or_not,
         .clean_up = [] { OS_free(answer); },
         .outcomes = {{"nothing", "a block", 10}, {"allocation 1", "null"}}},
        {.name = "OS_realloc",
         .prepare =
             [] {
                 block = OS_alloc(10);
                 fill_with_byte(block, 'x', 10);
             },
         .act = [] { answer = OS_realloc(block, 20); },
         .result = null_or_not,
         .use =
             [] {
                 LPVOID remaining = answer != nullptr ? answer : block;
                 EXPECT_TRUE(is_filled_with_byte(remaining, 'x', 10));
                 OS_free(remaining);
             },
         .outcomes = {{"nothing", "a block", 10}, {"allocation 1", "null"}}},
    };
}

// ---- Paths and names

void take_every_bucket()
{
    untouched_text();
    for (uint64_t tag = 1; tag <= ZR_MEMM_BUCKET_COUNT; ++tag)
        allocate(tag);
}

scenarios paths()
{
    const auto joined = [](const CHAR *directory) {
        return [directory] {
            number = OS_sys_path_concat(directory, "x.so", text, 40);
        };
    };
    const failure_outcome refused = {"allocation *", std::string("0, ") + UNTOUCHED};
    const failure_outcome unformatted = {"vsprintf 1", "0, "};
    scenarios list = {
        {.name = "OS_sys_path_concat, a slash is added",
         .act = joined("/usr/lib"),
         .outcomes = {{"nothing", "13, /usr/lib/x.so"}, refused, unformatted}},
        {.name = "OS_sys_path_concat, the directory ends in a slash",
         .act = joined("/usr/lib/"),
         .outcomes = {{"nothing", "13, /usr/lib/x.so"}, refused, unformatted}},
        {.name = "OS_sys_path_concat, no directory",
         .act = joined(""),
         .outcomes = {{"nothing", "4, x.so"}, refused}},
        {.name = "OS_sys_path_concat, every bucket is taken",
         .prepare = take_every_bucket,
         .act = joined("/usr/lib"),
         .clean_up = [] { ZR_memm_cleanup(); },
         .outcomes = {{"nothing", "13, /usr/lib/x.so"}, refused, unformatted}},
        {.name = "OS_sys_compfilename_create",
         .act = [] { number = OS_sys_compfilename_create("util", text, 40); },
         .outcomes = {{"nothing", "14, libQVutil17.so"}, {"vsprintf 1", "-1, "}}},
    };
    for (scenario &each : list) {
        if (!each.prepare)
            each.prepare = untouched_text;
        each.result = [] {
            return words(number, ", ", text);
        };
        each.use = [] {
            EXPECT_EQ(OS_sys_path_concat("a", "b", text, 40), 3);
        };
    }
    list.back().result = [] {
        return words(number, ", ", number > 0 ? text : "");
    };
    return list;
}

// ---- Modules: the process image

void expect_module_serves(LPVOID module)
{
    EXPECT_NE(OS_sys_sym_get(module, "ZR_memm_alloc"), nullptr);
    EXPECT_EQ(OS_sys_module_unload(module), 0);
}

scenarios modules()
{
    return {
        {.name = "OS_sys_module_load",
         .act = [] { answer = OS_sys_module_load(nullptr); },
         .result = [] { return answer != nullptr ? "a module" : "null"; },
         .use = [] { expect_module_serves(answer != nullptr ? answer : OS_sys_module_load(nullptr)); },
         .outcomes = {{"nothing", "a module"}, {"dlopen 1", "null"}}},
        {.name = "OS_sys_sym_get",
         .prepare = [] { block = OS_sys_module_load(nullptr); },
         .act = [] { answer = OS_sys_sym_get(block, "ZR_memm_alloc"); },
         .result = [] { return answer != nullptr ? "an address" : "null"; },
         .use = [] { expect_module_serves(block); },
         .outcomes = {{"nothing", "an address"}, {"dlsym 1", "null"}}},
        {.name = "OS_sys_module_unload",
         .prepare = [] { block = OS_sys_module_load(nullptr); },
         .act = [] { number = OS_sys_module_unload(block); },
         .result = [] { return words(number); },
         .use =
             [] {
                 if (number != 0)
                     expect_module_serves(block);
             },
         .outcomes = {{"nothing", "0"}, {"dlclose 1", "-1"}}},
    };
}

// ---- Process facts

INT standard_error;  // while it goes nowhere

std::string processors()
{
    cpu_set_t mask;
    EXPECT_EQ(sched_getaffinity(0, sizeof mask, &mask), 0);
    const LONG online = sysconf(_SC_NPROCESSORS_ONLN);
    return number == CPU_COUNT(&mask) || number == online ? "a count" : words(number);
}

scenarios process_facts()
{
    return {
        // The mask counts when it can be had, and otherwise the number online.
        {.name = "OS_processor_count",
         .act = [] { number = OS_processor_count(); },
         .result = processors,
         .outcomes = {{"nothing", "a count"},
                      {"sysconf 1", "a count"},
                      {"sched_getaffinity 1", "a count"},
                      {"__sched_cpucount 1", "a count"}}},
        {.name = "OS_message_box",
         .load =
             [] {
                 standard_error = dup(STDERR_FILENO);
                 const INT nowhere = OS_open("/dev/null", O_WRONLY, 0);
                 dup2(nowhere, STDERR_FILENO);
                 OS_close(nowhere);
             },
         .act = [] { number = OS_message_box("title", "text"); },
         .result = [] { return words(number); },
         .clean_up =
             [] {
                 dup2(standard_error, STDERR_FILENO);
                 OS_close(standard_error);
             },
         .outcomes = {{"nothing", "13"}, {"fprintf 1", "-1"}}},
    };
}

// ---- Identifiers

bool is_identifier(const CHAR *source)
{
    bool has_form = strlen(source) == 37 && source[36] == '\n';
    for (size_t i = 0; has_form && i < 36; ++i) {
        const bool is_hyphen_expected = i == 8 || i == 13 || i == 18 || i == 23;
        has_form =
            is_hyphen_expected ? source[i] == '-' : isxdigit(static_cast<unsigned char>(source[i])) != 0;
    }
    return has_form;
}

std::string source_text()
{
    if (text[0] == '\0')
        return words(number, ", zeros");
    return words(number, ", ", is_identifier(text) ? "an identifier" : text);
}

// One identifier in 256 begins with a zero byte and is all zeros, so that they say nothing here.
std::string guid_bytes()
{
    return words(number, memcmp(text, UNTOUCHED, 16) == 0 ? ", unwritten" : ", written");
}

scenarios identifiers()
{
    scenarios list = {
        // The first allocation is the stream's, the second its buffer's: the C library reads without one.
        {.name = "readUUID",
         .act = [] { number = readUUID(text, 40); },
         .result = source_text,
         .outcomes = {{"nothing", "1, an identifier"},
                      {"allocation 1", "0, zeros"},
                      {"allocation 2", "1, an identifier"},
                      {"fopen 1", "0, zeros"},
                      {"fgets 1", "1, zeros"},
                      {"fclose 1", "1, an identifier"}}},
        {.name = "OS_create_guid",
         .act = [] { number = OS_create_guid(reinterpret_cast<LPBYTE>(text)); },
         .result = guid_bytes,
         .outcomes = {{"nothing", "1, written"},
                      {"allocation 1", "0, unwritten"},
                      {"allocation 2", "1, written"},
                      {"fopen 1", "0, unwritten"},
                      {"fgets 1", "1, written"},
                      {"fclose 1", "1, written"}}},
    };
    for (scenario &each : list) {
        each.prepare = untouched_text;
        each.use = [] {
            BYTE guid[16];
            EXPECT_NE(OS_create_guid(guid), 0);
        };
    }
    return list;
}

}  // namespace

scenarios service_scenarios()
{
    scenarios all;
    for (const auto &make : {heap_wrappers, paths, modules, process_facts, identifiers})
        for (scenario &each : make())
            all.push_back(std::move(each));
    return all;
}
