// Code in a forked child, and command lines: how they ended and what they wrote.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct child_result {
    bool has_exited = false;  // false: ended by a signal
    int status = -1;          // the exit status, or the number of the signal
    std::string out;          // all of standard output
    std::string err;          // all of standard error

    bool succeeded() const { return has_exited && status == 0; }
    std::string describe() const;  // status and both texts, for failure messages
};

// Run `body` in a forked child. The child exits with 0, or with 1 after a failed expectation, whose message
// is then in `out`. It runs nothing at exit; `body` may end it earlier with _exit.
child_result run_in_child(const std::function<void()> &body);

// Run `body` in a forked child and report its failed expectations, or its death, as failures of this test.
void expect_passes_in_child(const std::function<void()> &body);

// Run a program (looked up in PATH) with its arguments and collect what it writes. Status 127: not found.
// Each of `environment` ("NAME=value") is added to, or replaces, this process's own.
child_result run_command(const std::vector<std::string> &command_line,
                         const std::vector<std::string> &environment = {});
