// The memory that the files being read may take together, whatever the number of threads.
#pragma once

#include "catalog_memory.h"

struct memory_budget;

// Null when there is no memory.
memory_budget *budget_open(memory_owner &owner);
void budget_close(memory_budget *budget);

// More than this for one file is not to be had: a quarter of the machine's memory.
uint64_t budget_largest_file();

// A file's share, from construction to destruction; waits until there is room. A file larger than the whole
// budget waits until no other has a share.
class budget_share {
public:
    budget_share(memory_budget *budget, uint64_t bytes);
    ~budget_share();
    budget_share(const budget_share &) = delete;
    budget_share &operator=(const budget_share &) = delete;

private:
    memory_budget *budget_;
    uint64_t bytes_;
};
