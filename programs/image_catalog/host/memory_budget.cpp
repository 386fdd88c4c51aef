#include "memory_budget.h"

#include <unistd.h>

#include <algorithm>
#include <memory>

/* A thread that finds no room resets `room_made` and waits for it; whoever gives a share back sets it. Both
 * happen while the identifier is taken, so no signal is lost between the look and the reset. */
struct memory_budget {
    qv::identifier identifier;  // guards what follows
    qv::event room_made;
    uint64_t limit = std::min(budget_largest_file(), UINT64_C(256) << 20);
    uint64_t used = 0;
};

namespace {

bool try_use(memory_budget *budget, uint64_t bytes)
{
    const std::lock_guard inside(budget->identifier);
    const bool has_room =
        budget->used == 0 || (budget->used <= budget->limit && bytes <= budget->limit - budget->used);
    if (has_room)
        budget->used += bytes;
    else
        budget->room_made.reset();
    return has_room;
}

}  // namespace

memory_budget *budget_open(memory_owner &owner)
{
    auto *budget = owner.make<memory_budget>();
    if (budget == nullptr || (budget->identifier && budget->room_made))
        return budget;
    budget_close(budget);
    return nullptr;
}

void budget_close(memory_budget *budget)
{
    std::destroy_at(budget);
}

uint64_t budget_largest_file()
{
    return static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 4;
}

budget_share::budget_share(memory_budget *budget, uint64_t bytes) : budget_(budget), bytes_(bytes)
{
    while (!try_use(budget_, bytes_))
        budget_->room_made.wait();
}

budget_share::~budget_share()
{
    const std::lock_guard inside(budget_->identifier);
    budget_->used -= bytes_;
    budget_->room_made.set();
}
