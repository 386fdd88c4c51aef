// Emulated mode: every object is a flag. Built twice: for a process in emulated mode, and, to call the
// emulated variants directly, for one in threaded mode.

#include "foundation/memory.h"
#include "foundation/os.h"
#include "os/sentinel_errno.h"
#include "os/unwritable_output.h"
#include "support/sync_operations.h"
#include "support/thread_functions.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <tuple>

namespace {

#if defined(PROCESS_IS_THREADED)
constexpr UINT EXPECTED_MODE = 1;
const auto every_name = testing::Values(EMULATED_OPERATIONS);
#else
constexpr UINT EXPECTED_MODE = 0;
const auto every_name = testing::Values(DISPATCHED_OPERATIONS, EMULATED_OPERATIONS);
#endif

// Fakes in place of the thread functions: a call of one of them would show.
void settle_mode()
{
    lookup_trace lookups;
    lookups.replace_by_fakes();
    if (EXPECTED_MODE == 0)
        lookups.hide(thread_function::COND_INIT);
    ASSERT_EQ(OS_threads_support(), EXPECTED_MODE);
}

UINT &flag_of(LPVOID record)
{
    return *static_cast<UINT *>(record);
}

class EmulatedMode : public testing::TestWithParam<sync_operations> {
protected:
    void SetUp() override { settle_mode(); }

    static const sync_operations &os() { return GetParam(); }
};

TEST_P(EmulatedMode, TheThreadIdentifierIsAlwaysOne)
{
    call_trace trace;
    EXPECT_EQ(os().current_thread_id_get(), 1U);
    EXPECT_EQ(trace.calls(), steps{});
}

// ---- Creation and release of all objects that are one flag

class EmulatedLock : public testing::TestWithParam<operations_and_kind> {
protected:
    void SetUp() override { settle_mode(); }

    static const lock_kind &kind() { return std::get<1>(GetParam()); }
    static INT create(LPVOID *lock) { return kind().create(std::get<0>(GetParam()), lock); }
    static INT free(LPVOID lock) { return kind().free(std::get<0>(GetParam()), lock); }
};

TEST_P(EmulatedLock, IsOneFlagThatStartsAtZero)
{
    call_trace trace;
    LPVOID lock = nullptr;
    EXPECT_EQ(create(&lock), kind().created);
    EXPECT_EQ(lock, trace.record());
    EXPECT_EQ(flag_of(lock), 0U);
    EXPECT_EQ(free(lock), kind().freed);
    EXPECT_EQ(trace.calls(), (steps{"malloc 4 = record", "free record"}));
}

TEST_P(EmulatedLock, IsNotMadeWithoutMemory)
{
    call_trace trace;
    trace.heap().refuse_all_allocations();
    LPVOID lock = unwritten();
    EXPECT_EQ(create(&lock), kind().not_created);
    EXPECT_EQ(lock, nullptr);
    EXPECT_EQ(trace.calls(), steps{"malloc 4 refused"});
}

TEST_P(EmulatedLock, ThatIsNullIsFreedByDoingNothing)
{
    call_trace trace;
    EXPECT_EQ(free(nullptr), kind().freed);
    EXPECT_EQ(trace.calls(), steps{});
}

// ---- Critical sections

TEST_P(EmulatedMode, EnterSetsAndLeaveClearsTheFlagWithoutCounting)
{
    for (const lock_kind *kind : {&lock_kinds::ORDINARY_SECTION, &lock_kinds::MEM_SYNC_SECTION}) {
        SCOPED_TRACE(kind->name);
        LPVOID section = nullptr;
        ASSERT_EQ(kind->create(os(), &section), 1);
        {
            call_trace trace;
            os().cs_enter(section);
            EXPECT_EQ(flag_of(section), 1U);
            os().cs_enter(section);
            EXPECT_EQ(flag_of(section), 1U);
            os().cs_leave(section);
            EXPECT_EQ(flag_of(section), 0U);
            os().cs_leave(section);
            EXPECT_EQ(flag_of(section), 0U);
            EXPECT_EQ(trace.calls(), steps{});
        }
        kind->free(os(), section);
    }
}

TEST_P(EmulatedMode, EnterAndLeaveStoreWhateverTheFlagHolds)
{
    UINT flag = 5;
    os().cs_enter(&flag);
    EXPECT_EQ(flag, 1U);
    flag = 5;
    os().cs_leave(&flag);
    EXPECT_EQ(flag, 0U);
}

TEST_P(EmulatedMode, EnterAndLeaveIgnoreANullHandle)
{
    call_trace trace;
    os().cs_enter(nullptr);
    os().cs_leave(nullptr);
    EXPECT_EQ(trace.calls(), steps{});
}

TEST_P(EmulatedMode, ReleasingTheTagTakesAnOrdinaryCriticalSectionWithIt)
{
    LPVOID section = nullptr;
    ASSERT_EQ(os().cs_allocate(SECTION_TAG, &section), 1);
    EXPECT_EQ(ZR_memm_flags(SECTION_TAG, section), ZR_MEMM_FLAG_RECORDED);
    call_trace trace(section);
    EXPECT_EQ(ZR_memm_free_all(SECTION_TAG), 1);
    EXPECT_EQ(trace.calls(), steps{"free record"});
}

TEST_P(EmulatedMode, NoTagHoldsAMemSyncCriticalSectionAMutexIdentifierOrAnEvent)
{
    LPVOID section = nullptr;
    LPVOID identifier = nullptr;
    LPVOID event = nullptr;
    ASSERT_EQ(os().mem_cs_allocate(&section), 1);
    ASSERT_EQ(os().mutex_ID_allocate(&identifier), 0);
    ASSERT_EQ(os().create_event(&event, 0, nullptr), 1);
    {
        call_trace trace;
        EXPECT_EQ(ZR_memm_cleanup(), 0);
        EXPECT_EQ(trace.calls(), steps{});
    }
    os().cs_enter(section);
    EXPECT_EQ(flag_of(section), 1U);
    os().mem_cs_free(section);
    os().mutex_ID_free(identifier);
    os().close_event(event);
}

TEST_P(EmulatedMode, ABlockThatItsTagCannotRecordFailsTheAllocation)
{
    const uint64_t tag_of_same_bucket = SECTION_TAG + 32;
    LPVOID other = ZR_memm_alloc(tag_of_same_bucket, 1, "test", __LINE__);
    ASSERT_NE(other, nullptr);
    {
        call_trace trace;
        trace.heap().refuse_allocation(1);
        LPVOID section = unwritten();
        EXPECT_EQ(os().cs_allocate(SECTION_TAG, &section), 0);
        EXPECT_EQ(section, nullptr);
        EXPECT_EQ(trace.calls(), (steps{"malloc 4 = record", "calloc 360 refused", "free record"}));
    }
    EXPECT_EQ(ZR_memm_free(tag_of_same_bucket, other, "test", __LINE__), nullptr);
}

// ---- Mutex identifiers

TEST_P(EmulatedMode, AMutexIdentifierIsTakenOnceAndReleasedOnce)
{
    LPVOID identifier = nullptr;
    ASSERT_EQ(os().mutex_ID_allocate(&identifier), 0);
    {
        call_trace trace;
        LPVOID handle = nullptr;
        EXPECT_EQ(os().mutex_open(identifier, nullptr, &handle), 1);
        EXPECT_EQ(handle, identifier);
        EXPECT_EQ(flag_of(identifier), 1U);
        LPVOID second_handle = unwritten();
        EXPECT_EQ(os().mutex_open(identifier, nullptr, &second_handle), 0);
        EXPECT_EQ(second_handle, unwritten());
        EXPECT_EQ(flag_of(identifier), 1U);
        EXPECT_EQ(os().mutex_release(handle), 1);
        EXPECT_EQ(flag_of(identifier), 0U);
        EXPECT_EQ(os().mutex_release(handle), 0);
        EXPECT_EQ(flag_of(identifier), 0U);
        EXPECT_EQ(os().mutex_open(identifier, nullptr, &handle), 1);
        EXPECT_EQ(trace.calls(), steps{});
    }
    os().mutex_ID_free(identifier);
}

TEST_P(EmulatedMode, OpeningIgnoresTheReservedArgument)
{
    for (const LPVOID reserved : {LPVOID{nullptr}, unwritten(), reinterpret_cast<LPVOID>(UINTPTR_MAX)}) {
        UINT identifier = 0;
        LPVOID handle = nullptr;
        EXPECT_EQ(os().mutex_open(&identifier, reserved, &handle), 1);
        EXPECT_EQ(handle, &identifier);
        EXPECT_EQ(os().mutex_open(&identifier, reserved, &handle), 0);
    }
}

TEST_P(EmulatedMode, AnyFlagButZeroIsTakenAndOnlyOneIsReleased)
{
    for (const UINT odd_flag : {2U, 7U, 0x101U, 0x10000U, 0x80000001U, UINT32_MAX}) {
        UINT identifier = odd_flag;
        LPVOID handle = unwritten();
        EXPECT_EQ(os().mutex_open(&identifier, nullptr, &handle), 0);
        EXPECT_EQ(handle, unwritten());
        EXPECT_EQ(os().mutex_release(&identifier), 0);
        EXPECT_EQ(identifier, odd_flag);
    }
}

TEST_P(EmulatedMode, ANullMutexIdentifierOpensANullHandleWhichReleases)
{
    LPVOID handle = unwritten();
    EXPECT_EQ(os().mutex_open(nullptr, nullptr, &handle), 1);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(os().mutex_release(nullptr), 1);
}

// ---- Events

TEST_P(EmulatedMode, AnEventIsOneStateKeptAsGiven)
{
    for (const UINT initial_state : {0U, 1U, 7U, 0x10000U, 0x80000000U, UINT32_MAX}) {
        call_trace trace;
        LPVOID event = nullptr;
        EXPECT_EQ(os().create_event(&event, initial_state, reinterpret_cast<LPVOID>(UINTPTR_MAX)), 1);
        EXPECT_EQ(event, trace.record());
        EXPECT_EQ(flag_of(event), initial_state);
        EXPECT_EQ(os().wait_for_event(event), initial_state != 0);
        EXPECT_EQ(flag_of(event), initial_state);
        EXPECT_EQ(os().close_event(event), 1);
        EXPECT_EQ(trace.calls(), (steps{"malloc 4 = record", "free record"}));
    }
}

TEST_P(EmulatedMode, AnEventIsSignalledFromSetToReset)
{
    LPVOID event = nullptr;
    ASSERT_EQ(os().create_event(&event, 7, nullptr), 1);
    {
        call_trace trace;
        EXPECT_EQ(os().reset_event(event), 1);
        EXPECT_EQ(flag_of(event), 0U);
        EXPECT_EQ(os().wait_for_event(event), 0);
        EXPECT_EQ(os().set_event(event), 1);
        EXPECT_EQ(flag_of(event), 1U);
        EXPECT_EQ(os().wait_for_event(event), 1);
        EXPECT_EQ(os().wait_for_event(event), 1);
        EXPECT_EQ(os().reset_event(event), 1);
        EXPECT_EQ(os().wait_for_event(event), 0);
        EXPECT_EQ(trace.calls(), steps{});
    }
    os().close_event(event);
}

TEST_P(EmulatedMode, AnEventHasItsHandleSetToNullBeforeTheHeapIsAsked)
{
    expect_output_is_written_before_the_heap_is_asked(os());
}

TEST_P(EmulatedMode, AnEventIsNotMadeWithoutMemory)
{
    call_trace trace;
    trace.heap().refuse_all_allocations();
    LPVOID event = unwritten();
    EXPECT_EQ(os().create_event(&event, 1, nullptr), 0);
    EXPECT_EQ(event, nullptr);
    EXPECT_EQ(trace.calls(), steps{"malloc 4 refused"});
}

TEST_P(EmulatedMode, AnEventIsNotMadeWithoutAPlaceForItsHandle)
{
    call_trace trace;
    EXPECT_EQ(os().create_event(nullptr, 1, nullptr), 0);
    EXPECT_EQ(trace.calls(), steps{});
}

TEST_P(EmulatedMode, ANullEventMakesEveryOperationASuccessThatDoesNothing)
{
    call_trace trace;
    EXPECT_EQ(os().close_event(nullptr), 1);
    EXPECT_EQ(os().set_event(nullptr), 1);
    EXPECT_EQ(os().reset_event(nullptr), 1);
    EXPECT_EQ(os().wait_for_event(nullptr), 1);
    EXPECT_EQ(trace.calls(), steps{});
}

// ---- errno

TEST_P(EmulatedLock, LeavesErrnoAloneThroughoutItsLife)
{
    errno = SENTINEL_ERRNO;
    LPVOID lock = nullptr;
    create(&lock);
    kind().take(std::get<0>(GetParam()), lock);
    kind().give_back(std::get<0>(GetParam()), lock);
    free(lock);
    EXPECT_EQ(errno, SENTINEL_ERRNO);
}

TEST_P(EmulatedMode, AnEventLeavesErrnoAloneThroughoutItsLife)
{
    errno = SENTINEL_ERRNO;
    LPVOID event = nullptr;
    os().create_event(&event, 0, nullptr);
    os().wait_for_event(event);
    os().set_event(event);
    os().reset_event(event);
    os().close_event(event);
    EXPECT_EQ(errno, SENTINEL_ERRNO);
}

// ---- Names that tell the two programs apart

#if defined(PROCESS_IS_THREADED)
INSTANTIATE_TEST_SUITE_P(ThreadedProcess, EmulatedMode, every_name, operations_name);
INSTANTIATE_TEST_SUITE_P(ThreadedProcess, EmulatedLock, testing::Combine(every_name, every_lock_kind),
                         operations_and_kind_name);
#else
INSTANTIATE_TEST_SUITE_P(EmulatedProcess, EmulatedMode, every_name, operations_name);
INSTANTIATE_TEST_SUITE_P(EmulatedProcess, EmulatedLock, testing::Combine(every_name, every_lock_kind),
                         operations_and_kind_name);
#endif

}  // namespace
