#include "calls.h"

#include "findings.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

namespace {

__thread int own_number;
__thread uint32_t depth;

// The thread inside the memory family, or 0, and from where it called; null while it is coming or going.
std::atomic<int> occupant = {0};
std::atomic<const place *> occupied_from = {nullptr};

const place *place_of_occupant()
{
    for (int attempt = 0; attempt < 1000; ++attempt)
        if (const place *where = occupied_from.load(std::memory_order_acquire))
            return where;
    return nullptr;
}

}  // namespace

int thread_number()
{
    if (own_number == 0)
        own_number = static_cast<int>(syscall(SYS_gettid));
    return own_number;
}

void forget_thread_number()
{
    own_number = 0;
}

bool is_inside()
{
    return depth != 0;
}

checked_call::checked_call() : caller_errno_(errno)
{
    ++depth;
}

checked_call::~checked_call()
{
    --depth;
    errno = caller_errno_;
}

memory_call::memory_call(const call_site &site) : where_(place_of(site))
{
    int other = 0;
    if (occupant.compare_exchange_strong(other, thread_number(), std::memory_order_acquire)) {
        is_first_ = true;
        occupied_from.store(where_, std::memory_order_release);
        return;
    }
    const place *other_place = other != thread_number() ? place_of_occupant() : nullptr;
    if (other_place == nullptr)  // a comparator's call, or the other one has gone meanwhile
        return;
    finding found = found_at(TWO_THREADS, where_, "%s is called while thread %d is in %s", site.function,
                             other, other_place->function);
    add_related(&found, "occupied", other_place);
    report(&found);
}

memory_call::~memory_call()
{
    if (!is_first_)
        return;
    occupied_from.store(nullptr, std::memory_order_relaxed);
    occupant.store(0, std::memory_order_release);
}

void forget_memory_call()
{
    occupied_from.store(nullptr, std::memory_order_relaxed);
    occupant.store(0, std::memory_order_relaxed);
}
