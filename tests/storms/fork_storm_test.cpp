// A process that forks while its threads hold sections. The child leaves those objects alone, as documented,
// and has everything else: objects of its own, and the memory manager when the fork was outside its calls.

#include "foundation/memory.h"
#include "foundation/os.h"

#include "os/crew.h"
#include "storms/storm.h"
#include "support/child_process.h"
#include "support/sanitizers.h"
#include "support/sync_operations.h"

#include <gtest/gtest.h>
#include <string.h>

#include <atomic>
#include <vector>

namespace {

constexpr const sync_operations &os = DISPATCHED_OPERATIONS;
constexpr lock_kind lock_kinds_of_all_sorts[] = {lock_kinds::ORDINARY_SECTION, lock_kinds::MEM_SYNC_SECTION,
                                                 lock_kinds::MUTEX_IDENTIFIER};
constexpr uint64_t PARENTS_TAG = 0x9A7E47;

void use_locks_of_ones_own()
{
    for (const lock_kind &kind : lock_kinds_of_all_sorts) {
        LPVOID lock = nullptr;
        ASSERT_EQ(kind.create(os, &lock), kind.created) << kind.name;
        for (int depth = 0; depth < 3; ++depth)
            kind.take(os, lock);
        for (int depth = 0; depth < 3; ++depth)
            kind.give_back(os, lock);
        EXPECT_EQ(kind.free(os, lock), kind.freed) << kind.name;
    }
}

void use_an_event_of_ones_own()
{
    LPVOID event = nullptr;
    ASSERT_EQ(OS_create_event(&event, 0, nullptr), 1);
    EXPECT_EQ(OS_set_event(event), 1);
    EXPECT_EQ(OS_wait_for_event(event), 1);
    EXPECT_EQ(OS_close_event(event), 1);
}

// In the child. The thread sanitizer allows no new threads there.
void use_threads_of_ones_own()
{
    LPVOID section = nullptr, event = nullptr;
    ASSERT_EQ(OS_mem_sync_cs_allocate(&section), 1);
    ASSERT_EQ(OS_create_event(&event, 0, nullptr), 1);
    int count = 0;
    crew threads(4);
    threads.start([&](unsigned) {
        OS_wait_for_event(event);
        OS_sync_cs_enter(section);
        ++count;
        OS_sync_cs_leave(section);
    });
    OS_set_event(event);
    threads.join();
    EXPECT_EQ(count, 4);
    EXPECT_EQ(OS_close_event(event), 1);
    EXPECT_EQ(OS_mem_sync_cs_free(section), 1);
}

// In the child: the parent's blocks are there under their tag, and the table serves new ones.
void use_the_memory_manager(LPVOID parents_block)
{
    EXPECT_EQ(ZR_memm_flags(PARENTS_TAG, parents_block), ZR_MEMM_FLAG_RECORDED);
    EXPECT_STREQ(static_cast<const char *>(parents_block), "parent");
    LPVOID own = ZR_memm_alloc(PARENTS_TAG, 100, "child", __LINE__);
    ASSERT_NE(own, nullptr);
    memset(own, 0xC4, 100);
    parents_block = ZR_memm_realloc(PARENTS_TAG, parents_block, 1000, "child", __LINE__);
    EXPECT_STREQ(static_cast<const char *>(parents_block), "parent");
    EXPECT_EQ(ZR_memm_free_all(PARENTS_TAG), 2);
}

class ForkStorm : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(OS_threads_support(), 1U);
        for (const lock_kind &kind : lock_kinds_of_all_sorts)
            ASSERT_EQ(kind.create(os, &locks.emplace_back()), kind.created);
        ASSERT_EQ(OS_mem_sync_cs_allocate(&manager), 1);
        ASSERT_EQ(OS_create_event(&event, 0, nullptr), 1);
        block = static_cast<char *>(ZR_memm_alloc(PARENTS_TAG, 7, "parent", __LINE__));
        memcpy(block, "parent", 7);
    }
    void TearDown() override
    {
        for (size_t i = 0; i < locks.size(); ++i)
            EXPECT_EQ(lock_kinds_of_all_sorts[i].free(os, locks[i]), lock_kinds_of_all_sorts[i].freed);
        EXPECT_EQ(OS_mem_sync_cs_free(manager), 1);
        EXPECT_EQ(OS_close_event(event), 1);
        EXPECT_EQ(ZR_memm_free_all(PARENTS_TAG), 1);
    }

    std::vector<LPVOID> locks;
    LPVOID manager = nullptr;  // the lock of all calls that use the memory manager
    LPVOID event = nullptr;
    char *block = nullptr;
};

TEST_F(ForkStorm, LeavesTheChildABasisOfItsOwn)
{
    const long forks = 1 + storm_rounds() / 10;
    std::atomic<bool> is_over{false};
    std::atomic<long> entries{0};
    crew threads(storm_threads());
    threads.start([&](unsigned number) {
        if (number % 4 == 3) {  // waits all the time
            OS_wait_for_event(event);
            return;
        }
        const lock_kind &kind = lock_kinds_of_all_sorts[number % 4];
        do {
            kind.take(os, locks[number % 4]);
            ++entries;
            // The heap is used under the manager's section alone, so that no fork comes in between.
            OS_sync_cs_enter(manager);
            LPVOID passing = ZR_memm_alloc(number, 10, "parent", __LINE__);
            ZR_memm_free(number, passing, "parent", __LINE__);
            OS_sync_cs_leave(manager);
            kind.give_back(os, locks[number % 4]);
        } while (!is_over);
    });
    for (long i = 0; i < forks; ++i) {
        OS_sync_cs_enter(manager);
        expect_passes_in_child([this] {
            EXPECT_EQ(OS_threads_support(), 1U);
            use_locks_of_ones_own();
            use_an_event_of_ones_own();
            use_the_memory_manager(block);
            if (!BUILT_FOR_THREAD_SANITIZER)
                use_threads_of_ones_own();
        });
        OS_sync_cs_leave(manager);
    }
    is_over = true;
    EXPECT_EQ(OS_set_event(event), 1);
    threads.join();
    EXPECT_GE(entries, storm_threads() / 2);
    report_storm("forks while other threads hold sections and wait", forks, "children");
}

}  // namespace
