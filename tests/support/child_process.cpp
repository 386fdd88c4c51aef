#include "support/child_process.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace {

struct pipe_ends {
    int read_end;
    int write_end;
};

pipe_ends make_pipe()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe2 failed");
    return {ends[0], ends[1]};
}

// False at the end of the stream.
bool append_available(int descriptor, std::string &text)
{
    char bytes[4096];
    const ssize_t count = read(descriptor, bytes, sizeof bytes);
    if (count > 0)
        text.append(bytes, static_cast<size_t>(count));
    return count > 0 || (count < 0 && errno == EINTR);
}

// Both at once: a child that fills one pipe while the other is being read to its end would never finish.
void collect_output(int out_end, int err_end, child_result &result)
{
    pollfd streams[2] = {{out_end, POLLIN, 0}, {err_end, POLLIN, 0}};
    std::string *texts[2] = {&result.out, &result.err};
    while (streams[0].fd >= 0 || streams[1].fd >= 0) {
        if (poll(streams, 2, -1) < 0)
            continue;
        for (int i = 0; i < 2; ++i)
            if (streams[i].revents != 0 && !append_available(streams[i].fd, *texts[i]))
                streams[i].fd = -1;  // poll skips it
    }
}

void collect_status(pid_t child, child_result &result)
{
    int wait_status = 0;
    while (waitpid(child, &wait_status, 0) < 0 && errno == EINTR)
        continue;
    result.has_exited = WIFEXITED(wait_status);
    result.status = result.has_exited ? WEXITSTATUS(wait_status) : WTERMSIG(wait_status);
}

// Fork a child that runs `body`, which must not return, with both output streams captured.
child_result run_captured(const std::function<void()> &body)
{
    const pipe_ends out = make_pipe();
    const pipe_ends err = make_pipe();
    fflush(nullptr);  // or the child would write out this process's buffered text a second time
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("fork failed");
    if (child == 0) {
        dup2(out.write_end, STDOUT_FILENO);
        dup2(err.write_end, STDERR_FILENO);
        body();
        _exit(126);
    }
    close(out.write_end);
    close(err.write_end);
    child_result result;
    collect_output(out.read_end, err.read_end, result);
    close(out.read_end);
    close(err.read_end);
    collect_status(child, result);
    return result;
}

}  // namespace

std::string child_result::describe() const
{
    return (has_exited ? "exit status " : "ended by signal ") + std::to_string(status) +
           "\n--- standard output\n" + out + "--- standard error\n" + err;
}

child_result run_in_child(const std::function<void()> &body)
{
    return run_captured([&body] {
        body();
        fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    });
}

void expect_passes_in_child(const std::function<void()> &body)
{
    const child_result child = run_in_child(body);
    EXPECT_TRUE(child.succeeded()) << child.describe();
}

child_result run_command(const std::vector<std::string> &command_line,
                         const std::vector<std::string> &environment)
{
    return run_captured([&] {
        std::vector<char *> arguments;
        for (const std::string &argument : command_line)
            arguments.push_back(const_cast<char *>(argument.c_str()));
        arguments.push_back(nullptr);
        for (const std::string &variable : environment)
            putenv(const_cast<char *>(variable.c_str()));
        execvp(arguments[0], arguments.data());
        fprintf(stderr, "%s: %s\n", arguments[0], strerror(errno));
        fflush(nullptr);
        _exit(127);
    });
}
