#include "standing_process.h"

#include "gdb_fixture.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

// For each thread the call that it is in, with its arguments, as the kernel tells them.
std::vector<std::string> calls_of_threads(const std::string &process)
{
    std::vector<std::string> calls;
    for (const auto &thread : std::filesystem::directory_iterator("/proc/" + process + "/task")) {
        std::ifstream stream(thread.path() / "syscall");
        std::string call;
        std::getline(stream, call);
        calls.push_back(call);
    }
    return calls;
}

bool is_waiting(const std::string &call)
{
    return call.rfind(std::to_string(SYS_futex) + " ", 0) == 0;
}

}  // namespace

standing_process::standing_process(const std::vector<std::string> &command_line)
{
    const std::string library_path = "LD_LIBRARY_PATH=" + installed_prefix() + "/lib";
    std::vector<char *> arguments;
    for (const std::string &argument : command_line)
        arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe2 failed");
    process_ = fork();
    if (process_ == 0) {
        dup2(ends[1], STDOUT_FILENO);
        putenv(const_cast<char *>(library_path.c_str()));
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    close(ends[1]);
    output_ = ends[0];
}

standing_process::~standing_process()
{
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    close(output_);
}

bool standing_process::has_written() const
{
    char byte;
    return read(output_, &byte, 1) == 1;
}

// Two looks that see the same calls: between them a thread that is about to go on has gone.
bool standing_process::all_threads_wait(size_t thread_count) const
{
    std::vector<std::string> before;
    for (int tries = 0; tries < 500; ++tries) {
        const std::vector<std::string> calls = calls_of_threads(id());
        size_t waiting = 0;
        for (const std::string &call : calls)
            waiting += is_waiting(call);
        if (waiting == thread_count && calls.size() == thread_count && calls == before)
            return true;
        before = calls;
        usleep(20000);
    }
    return false;
}
