// Several threads at work together.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// Threads that begin together and are waited for at the end of their scope.
class crew {
public:
    explicit crew(unsigned size) : size_(size), kernel_ids_(size) {}
    ~crew() { join(); }

    // Every thread runs `work` with its number, from 0, as soon as all of them are there.
    void start(const std::function<void(unsigned number)> &work)
    {
        for (unsigned number = 0; number < size_; ++number)
            threads_.emplace_back([this, work, number] {
                kernel_ids_[number] = static_cast<long>(syscall(SYS_gettid));
                ++present_;
                while (present_ < size_)
                    std::this_thread::yield();
                work(number);
            });
        while (present_ < size_)
            std::this_thread::yield();
    }

    void join()
    {
        for (std::thread &thread : threads_)
            thread.join();
        threads_.clear();
    }

    // Wait until every thread has fallen asleep in the call that it is expected to block in, or has ended.
    // Nothing rests on it but the power of the test: what must not happen then has had its chance.
    void await_sleep() const
    {
        for (const std::atomic<long> &id : kernel_ids_)
            while (is_running(id))
                std::this_thread::yield();
    }

private:
    static bool is_running(long kernel_id)
    {
        std::ifstream file("/proc/self/task/" + std::to_string(kernel_id) + "/stat");
        std::string line;
        std::getline(file, line);
        const size_t name_end = line.rfind(") ");
        return name_end != std::string::npos && line[name_end + 2] == 'R';
    }

    unsigned size_;
    std::vector<std::atomic<long>> kernel_ids_;
    std::atomic<unsigned> present_{0};
    std::vector<std::thread> threads_;
};
