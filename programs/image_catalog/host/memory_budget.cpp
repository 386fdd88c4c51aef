#include "memory_budget.h"

#include "catalog_memory.h"

#include <unistd.h>

/* A thread that finds no room resets `room_made` and waits for it; whoever gives a share back sets it. Both
 * happen while the identifier is taken, so no signal is lost between the look and the reset. */
struct memory_budget {
    LPVOID identifier;  // a mutex identifier that guards what follows
    LPVOID room_made;
    uint64_t limit;
    uint64_t used;
};

namespace {

constexpr uint64_t MOST_BYTES = UINT64_C(256) << 20;

bool try_use(memory_budget *budget, uint64_t bytes)
{
    LPVOID handle = nullptr;
    OS_mutex_open(budget->identifier, nullptr, &handle);
    const bool has_room =
        budget->used == 0 || (budget->used <= budget->limit && bytes <= budget->limit - budget->used);
    if (has_room)
        budget->used += bytes;
    else
        OS_reset_event(budget->room_made);
    OS_mutex_release(handle);
    return has_room;
}

}  // namespace

memory_budget *budget_open(uint64_t tag)
{
    auto *budget = static_cast<memory_budget *>(memory_alloc(tag, sizeof(memory_budget)));
    if (budget == nullptr)
        return nullptr;
    const uint64_t largest = budget_largest_file();
    *budget = {nullptr, nullptr, largest < MOST_BYTES ? largest : MOST_BYTES, 0};
    if (OS_mutex_ID_allocate(&budget->identifier) == 0 &&
        OS_create_event(&budget->room_made, 0, nullptr) != 0)
        return budget;
    budget_close(budget);
    return nullptr;
}

void budget_close(memory_budget *budget)
{
    if (budget->identifier != nullptr)
        OS_mutex_ID_free(budget->identifier);
    OS_close_event(budget->room_made);
}

uint64_t budget_largest_file()
{
    return static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 4;
}

budget_share::budget_share(memory_budget *budget, uint64_t bytes) : budget_(budget), bytes_(bytes)
{
    while (!try_use(budget_, bytes_))
        OS_wait_for_event(budget_->room_made);
}

budget_share::~budget_share()
{
    LPVOID handle = nullptr;
    OS_mutex_open(budget_->identifier, nullptr, &handle);
    budget_->used -= bytes_;
    OS_set_event(budget_->room_made);
    OS_mutex_release(handle);
}
