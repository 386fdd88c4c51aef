// qv-check: run a program with the checker in front of the foundation library.

#include "options.h"
#include "suppressions.h"

#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr char CHECKER_NAME[] = "libQVfoundation17-check.so";

// As env(1) has them.
constexpr int STATUS_REFUSED = 125;
constexpr int STATUS_NOT_RUNNABLE = 126;
constexpr int STATUS_NOT_FOUND = 127;

constexpr char HELP[] =
    R"(Usage: qv-check [OPTION]... PROGRAM [ARGUMENT]...

Run PROGRAM and report how it misuses libQVfoundation17.so: blocks that are never
released, releases under a wrong tag or twice, objects that are used after their
release, calls of two threads at once, and more. Without a finding nothing is
printed; the program's behaviour and its exit status are its own.

  --fatal            end the process (SIGABRT) at the first finding
  --json             write findings for machines, one JSON object a line
  --output=FILE      write to FILE, which is emptied first; by default to the
                     standard error stream
  --stacks           keep the stack of each call that records something, so that
                     leaks are told with it; slower
  --suppress=FILE    leave out the findings that FILE describes; may be repeated
  --trace-children   check the programs that PROGRAM starts, too
  --help             print this text
  --version          print the version

Exit status: that of PROGRAM; 125 when qv-check itself fails, 126 when PROGRAM
cannot be run, 127 when it is not found.
)";

[[noreturn]] void refuse(const char *format, ...) __attribute__((format(printf, 1, 2)));
void refuse(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fputs("qv-check: ", stderr);
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
    va_end(arguments);
    exit(STATUS_REFUSED);
}

// ---- The options' text for the library

constexpr size_t TEXT_LIMIT = 64 * 1024;
char options_text[TEXT_LIMIT];

void add_option(const char *name, const char *value)
{
    const size_t length = strlen(options_text);
    if (value != nullptr && strchr(value, '\n') != nullptr)
        refuse("the name of a file has a newline: %s", value);
    const int added = value != nullptr
                          ? snprintf(options_text + length, TEXT_LIMIT - length, "%s=%s\n", name, value)
                          : snprintf(options_text + length, TEXT_LIMIT - length, "%s\n", name);
    if (static_cast<size_t>(added) >= TEXT_LIMIT - length)
        refuse("there are too many options");
}

// The program may change its folder before the file is opened again.
void add_file_option(const char *name, const char *path)
{
    char absolute[PATH_MAX];
    if (realpath(path, absolute) == nullptr)
        refuse("%s: %s", path, strerror(errno));
    add_option(name, absolute);
}

void add_suppressions(const char *path)
{
    const suppression_error error = load_suppressions(path);
    if (error.reason != nullptr && error.line != 0)
        refuse("%s:%u: %s", path, error.line, error.reason);
    if (error.reason != nullptr)
        refuse("%s: %s", path, error.reason);
    add_file_option("suppress", path);
}

void add_output(const char *path)
{
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor < 0)
        refuse("%s: %s", path, strerror(errno));
    close(descriptor);
    add_file_option("output", path);
}

// Returns whether children are to be checked as well.
bool take_arguments(int count, char **arguments)
{
    bool traces_children = false;
    enum { FATAL = 1, JSON, OUTPUT, STACKS, SUPPRESS, CHILDREN, SHOW_HELP, SHOW_VERSION };
    const option known[] = {{"fatal", no_argument, nullptr, FATAL},
                            {"json", no_argument, nullptr, JSON},
                            {"output", required_argument, nullptr, OUTPUT},
                            {"stacks", no_argument, nullptr, STACKS},
                            {"suppress", required_argument, nullptr, SUPPRESS},
                            {"trace-children", no_argument, nullptr, CHILDREN},
                            {"help", no_argument, nullptr, SHOW_HELP},
                            {"version", no_argument, nullptr, SHOW_VERSION},
                            {}};
    for (int given; (given = getopt_long(count, arguments, "+", known, nullptr)) != -1;) {
        switch (given) {
        case FATAL:
            add_option("fatal", nullptr);
            break;
        case JSON:
            add_option("json", nullptr);
            break;
        case OUTPUT:
            add_output(optarg);
            break;
        case STACKS:
            add_option("stacks", nullptr);
            break;
        case SUPPRESS:
            add_suppressions(optarg);
            break;
        case CHILDREN:
            traces_children = true;
            break;
        case SHOW_HELP:
            fputs(HELP, stdout);
            exit(fflush(stdout) == 0 ? 0 : STATUS_REFUSED);
        case SHOW_VERSION:
            puts("qv-check " QV_CHECK_VERSION);
            exit(fflush(stdout) == 0 ? 0 : STATUS_REFUSED);
        default:
            fputs("Try 'qv-check --help'.\n", stderr);
            exit(STATUS_REFUSED);
        }
    }
    return traces_children;
}

// ---- The checker's library: beside the command in the build folder, otherwise where it is installed

bool is_checker_in(char *folder, const char *beside)
{
    const size_t length = strlen(folder);
    char path[PATH_MAX + sizeof CHECKER_NAME + 1];
    snprintf(folder + length, PATH_MAX - length, "%s", beside);
    snprintf(path, sizeof path, "%s/%s", folder, CHECKER_NAME);
    if (access(path, R_OK) == 0)
        return true;
    folder[length] = '\0';
    return false;
}

// Into `folder`, PATH_MAX bytes.
void find_checker(char *folder)
{
    const ssize_t length = readlink("/proc/self/exe", folder, PATH_MAX - 1);
    if (length < 0)
        refuse("/proc/self/exe: %s", strerror(errno));
    folder[length] = '\0';
    *strrchr(folder, '/') = '\0';
    if (!is_checker_in(folder, "") && !is_checker_in(folder, "/" QV_CHECK_LIBRARY_FOLDER))
        refuse("%s is neither in %s nor in %s/%s", CHECKER_NAME, folder, folder, QV_CHECK_LIBRARY_FOLDER);
}

// ---- The environment. What is there stays in front; the library takes the rest out again.

void append_to_variable(const char *name, const char *value, bool is_restored)
{
    static char text[TEXT_LIMIT];
    const char *old = getenv(name);
    const bool is_there = old != nullptr;
    const int length = snprintf(text, sizeof text, "%s%s%s", is_there ? old : "", is_there ? ":" : "", value);
    if (static_cast<size_t>(length) >= sizeof text)
        refuse("%s is too long", name);
    char old_length[24] = "-";
    if (is_there)
        snprintf(old_length, sizeof old_length, "%zu", strlen(old));
    if (is_restored)
        add_option(name, old_length);
    if (setenv(name, text, 1) != 0)
        refuse("%s: %s", name, strerror(errno));
}

// The loader takes spaces for separators in LD_PRELOAD, though not in LD_LIBRARY_PATH.
void preload(const char *folder, bool is_restored)
{
    char path[PATH_MAX + sizeof CHECKER_NAME + 1];
    snprintf(path, sizeof path, "%s/%s", folder, CHECKER_NAME);
    if (strpbrk(folder, ":;") != nullptr)
        refuse("the dynamic loader takes no library from a folder with this name: %s", folder);
    const bool has_spaces = strpbrk(folder, " \t") != nullptr;
    if (has_spaces)
        append_to_variable("LD_LIBRARY_PATH", folder, is_restored);
    append_to_variable("LD_PRELOAD", has_spaces ? CHECKER_NAME : path, is_restored);
    if (setenv(OPTIONS_VARIABLE, options_text, 1) != 0)
        refuse("%s: %s", OPTIONS_VARIABLE, strerror(errno));
}

}  // namespace

int main(int argument_count, char **arguments)
{
    const bool traces_children = take_arguments(argument_count, arguments);
    char **program = arguments + optind;
    if (*program == nullptr)
        refuse("a program is wanted; try 'qv-check --help'");
    char folder[PATH_MAX];
    find_checker(folder);
    preload(folder, !traces_children);
    execvp(*program, program);
    const int reason = errno;
    fprintf(stderr, "qv-check: %s: %s\n", *program, strerror(reason));
    return reason == ENOENT ? STATUS_NOT_FOUND : STATUS_NOT_RUNNABLE;
}
