// One lock around everything the checker knows. Not one of the thread library's: that would bring the library
// into hosts that have none, and change the mode that the foundation library settles on.
#pragma once

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

// It is held for some dozens of instructions, and hardly ever met taken: so whoever meets it tries again, and
// leaving it costs no more than a store.
class brief_lock {
public:
    void take()
    {
        for (unsigned attempt = 1; is_taken_.exchange(true, std::memory_order_acquire); ++attempt)
            wait(attempt);
    }
    void release() { is_taken_.store(false, std::memory_order_release); }

private:
    static void wait(unsigned attempt)
    {
        const timespec moment = {0, 50 * 1000};
        if (attempt % 64 != 0)
            __builtin_ia32_pause();
        else
            syscall(SYS_nanosleep, &moment, nullptr);  // the C library's function could be cancelled
    }

    std::atomic<bool> is_taken_ = {false};
};

// Guards the registry, the places and the findings. Never held while the library, the dynamic loader or the
// host runs: each of them may come back in another thread and wait for it.
extern brief_lock checker_lock;

class locked {
public:
    locked() { checker_lock.take(); }
    ~locked() { checker_lock.release(); }
    locked(const locked &) = delete;
    locked &operator=(const locked &) = delete;
};
