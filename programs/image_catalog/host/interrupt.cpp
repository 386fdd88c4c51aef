#include "interrupt.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>

#include <atomic>

namespace {

constexpr INT SIGNALS[] = {SIGINT, SIGTERM};

std::atomic<INT> received = 0;
static_assert(std::atomic<INT>::is_always_lock_free, "a signal handler writes it");

extern "C" void remember(int signal_number)
{
    received.store(signal_number, std::memory_order_relaxed);
}

sigset_t all_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const INT each : SIGNALS)
        sigaddset(&set, each);
    return set;
}

}  // namespace

void interrupt_catch()
{
    for (const INT each : SIGNALS) {
        struct sigaction before = {};
        // What the parent ignores, as a shell does for a job in the background, stays ignored.
        if (sigaction(each, nullptr, &before) != 0 || before.sa_handler == SIG_IGN)
            continue;
        struct sigaction action = {};
        action.sa_handler = remember;
        action.sa_flags = static_cast<INT>(SA_RESETHAND);
        sigaction(each, &action, nullptr);
    }
}

bool is_interrupted()
{
    return received.load(std::memory_order_relaxed) != 0;
}

// A signal between the look and the wait would be waited out, so it is let in by the wait alone.
bool interrupt_wait_for_input(INT descriptor)
{
    const interrupts_blocked blocked;
    sigset_t while_waiting;
    pthread_sigmask(SIG_BLOCK, nullptr, &while_waiting);
    for (const INT each : SIGNALS)
        sigdelset(&while_waiting, each);
    pollfd input = {descriptor, POLLIN, 0};
    while (!is_interrupted())
        if (ppoll(&input, 1, nullptr, &while_waiting) >= 0 || errno != EINTR)
            return true;
    return false;
}

void interrupt_obey()
{
    const INT signal_number = received.load(std::memory_order_relaxed);
    if (signal_number != 0)
        raise(signal_number);  // its action is the default again
}

interrupts_blocked::interrupts_blocked()
{
    const sigset_t set = all_signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

interrupts_blocked::~interrupts_blocked()
{
    const sigset_t set = all_signals();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}
