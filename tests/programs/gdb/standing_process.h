// A process for gdb to attach to, with the installed library. It ends with this.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

class standing_process {
public:
    explicit standing_process(const std::vector<std::string> &command_line);
    ~standing_process();
    standing_process(const standing_process &) = delete;
    standing_process &operator=(const standing_process &) = delete;

    std::string id() const { return std::to_string(process_); }
    bool has_written() const;  // whether it writes something before it ends; waits for that
    bool all_threads_wait(
        size_t thread_count) const;  // whether it comes to have so many, which all wait for another

private:
    pid_t process_;
    int output_;
};
