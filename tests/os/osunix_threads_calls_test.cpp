// Threaded mode over fakes of the thread functions: which of them each operation calls, in which order and
// with what, and what becomes of it when one of them, or the heap, fails.

#include "foundation/memory.h"
#include "foundation/os.h"
#include "support/sync_operations.h"
#include "support/thread_functions.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <tuple>
#include <type_traits>

namespace {

static_assert(sizeof(pthread_mutex_t) == 40 && sizeof(pthread_cond_t) == 48, "as the steps below show them");
static_assert(std::is_same_v<decltype(OS_current_thread_id_get()), uintptr_t>);

// The mode is settled once a process, for all tests of this program alike.
void settle_threaded_mode_with_fakes()
{
    lookup_trace lookups;
    lookups.replace_by_fakes();
    ASSERT_EQ(OS_threads_support(), 1U);
}

const auto every_name = testing::Values(DISPATCHED_OPERATIONS, THREADED_OPERATIONS);

class ThreadedCalls : public testing::TestWithParam<sync_operations> {
protected:
    void SetUp() override { settle_threaded_mode_with_fakes(); }

    static const sync_operations &os() { return GetParam(); }
};

// ---- Creation and release of what is one mutex: both critical sections and mutex identifiers

class ThreadedLock : public testing::TestWithParam<operations_and_kind> {
protected:
    void SetUp() override { settle_threaded_mode_with_fakes(); }

    static const sync_operations &os() { return std::get<0>(GetParam()); }
    static const lock_kind &kind() { return std::get<1>(GetParam()); }
    static INT create(LPVOID *lock) { return kind().create(os(), lock); }
    static INT free(LPVOID lock) { return kind().free(os(), lock); }

    static LPVOID created()
    {
        LPVOID lock = nullptr;
        EXPECT_EQ(create(&lock), kind().created);
        return lock;
    }
};

INSTANTIATE_TEST_SUITE_P(, ThreadedLock, testing::Combine(every_name, every_lock_kind),
                         operations_and_kind_name);

const steps creation = {
    "malloc 40 = record",
    "pthread_mutexattr_init(attribute)",
    "pthread_mutexattr_settype(attribute, 1)",
    "pthread_mutex_init(record, attribute)",
    "pthread_mutexattr_destroy(attribute)",
};
const steps release = {"pthread_mutex_destroy(record)", "free record"};

TEST_P(ThreadedLock, IsARecursiveMutexThatIsTheWholeRecord)
{
    call_trace trace;
    LPVOID lock = nullptr;
    EXPECT_EQ(create(&lock), kind().created);
    EXPECT_EQ(trace.calls(), creation);
    EXPECT_EQ(lock, trace.heap().calls().front().block);
    free(lock);
}

TEST_P(ThreadedLock, IsReleasedBeforeTheAttributeWhenItsInitialisationFails)
{
    call_trace trace;
    trace.fail(thread_function::MUTEX_INIT);
    LPVOID lock = unwritten();
    EXPECT_EQ(create(&lock), kind().not_created);
    EXPECT_EQ(lock, nullptr);
    const steps expected = {
        "malloc 40 = record",
        "pthread_mutexattr_init(attribute)",
        "pthread_mutexattr_settype(attribute, 1)",
        "pthread_mutex_init(record, attribute)",
        "free record",
        "pthread_mutexattr_destroy(attribute)",
    };
    EXPECT_EQ(trace.calls(), expected);
}

TEST_P(ThreadedLock, IsMadeWhateverTheAttributeFunctionsReport)
{
    for (const auto failing : {thread_function::MUTEXATTR_INIT, thread_function::MUTEXATTR_SETTYPE,
                               thread_function::MUTEXATTR_DESTROY}) {
        SCOPED_TRACE(thread_function_names[static_cast<size_t>(failing)]);
        call_trace trace;
        trace.fail(failing);
        LPVOID lock = nullptr;
        EXPECT_EQ(create(&lock), kind().created);
        EXPECT_NE(lock, nullptr);
        EXPECT_EQ(trace.calls(), creation);
        free(lock);
    }
}

TEST_P(ThreadedLock, DoesNotTestItsAllocationBeforeTheInitialisation)
{
    call_trace trace;
    trace.heap().refuse_all_allocations();
    LPVOID lock = unwritten();
    EXPECT_EQ(create(&lock), kind().created);
    EXPECT_EQ(lock, nullptr);
    const steps expected = {
        "malloc 40 refused",
        "pthread_mutexattr_init(attribute)",
        "pthread_mutexattr_settype(attribute, 1)",
        "pthread_mutex_init(null, attribute)",
        "pthread_mutexattr_destroy(attribute)",
    };
    EXPECT_EQ(trace.calls(), expected);
}

TEST_P(ThreadedLock, ReleasesNothingWhenAllocationAndInitialisationFail)
{
    call_trace trace;
    trace.heap().refuse_all_allocations();
    trace.fail(thread_function::MUTEX_INIT);
    LPVOID lock = unwritten();
    EXPECT_EQ(create(&lock), kind().not_created);
    EXPECT_EQ(lock, nullptr);
    const steps expected = {
        "malloc 40 refused",
        "pthread_mutexattr_init(attribute)",
        "pthread_mutexattr_settype(attribute, 1)",
        "pthread_mutex_init(null, attribute)",
        "pthread_mutexattr_destroy(attribute)",
    };
    EXPECT_EQ(trace.calls(), expected);
}

TEST_P(ThreadedLock, IsDestroyedAndThenReleased)
{
    LPVOID lock = created();
    call_trace trace(lock);
    EXPECT_EQ(free(lock), kind().freed);
    EXPECT_EQ(trace.calls(), release);
}

TEST_P(ThreadedLock, IsReleasedEvenIfItsDestructionFails)
{
    LPVOID lock = created();
    call_trace trace(lock);
    trace.fail(thread_function::MUTEX_DESTROY);
    EXPECT_EQ(free(lock), kind().freed);
    EXPECT_EQ(trace.calls(), release);
}

TEST_P(ThreadedLock, ReachesDestructionWhenNullAndReleasesNoMemory)
{
    call_trace trace;
    EXPECT_EQ(free(nullptr), kind().freed);
    EXPECT_EQ(trace.calls(), steps{"pthread_mutex_destroy(null)"});
}

// ---- Where the record of a critical section belongs

INSTANTIATE_TEST_SUITE_P(, ThreadedCalls, every_name, operations_name);

TEST_P(ThreadedCalls, AnOrdinaryCriticalSectionIsRecordedUnderItsTag)
{
    LPVOID section = nullptr;
    ASSERT_EQ(os().cs_allocate(SECTION_TAG, &section), 1);
    EXPECT_EQ(ZR_memm_flags(SECTION_TAG, section), ZR_MEMM_FLAG_RECORDED);
    EXPECT_EQ(os().cs_free(SECTION_TAG, section), 1);
    EXPECT_EQ(ZR_memm_flags(SECTION_TAG, section), 0U);
}

TEST_P(ThreadedCalls, ReleasingTheTagTakesAnOrdinaryCriticalSectionWithIt)
{
    LPVOID section = nullptr;
    ASSERT_EQ(os().cs_allocate(SECTION_TAG, &section), 1);
    call_trace trace(section);
    EXPECT_EQ(ZR_memm_free_all(SECTION_TAG), 1);
    EXPECT_EQ(trace.calls(), steps{"free record"});
}

TEST_P(ThreadedCalls, AnOrdinaryCriticalSectionIsNotReleasedUnderAnotherTag)
{
    LPVOID section = nullptr;
    ASSERT_EQ(os().cs_allocate(SECTION_TAG, &section), 1);
    {
        call_trace trace(section);
        EXPECT_EQ(os().cs_free(SECTION_TAG + 1, section), 1);
        EXPECT_EQ(trace.calls(), steps{"pthread_mutex_destroy(record)"});
    }
    EXPECT_EQ(ZR_memm_free_all(SECTION_TAG), 1);
}

TEST_P(ThreadedCalls, NoTagHoldsAMemSyncCriticalSectionAMutexIdentifierOrAnEvent)
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
    os().mem_cs_free(section);
    os().mutex_ID_free(identifier);
    os().close_event(event);
}

// The tag's block can be had, but not the record of a second tag in a bucket that has one already.
TEST_P(ThreadedCalls, ABlockThatItsTagCannotRecordCountsAsNotAllocated)
{
    const uint64_t tag_of_same_bucket = SECTION_TAG + 32;
    LPVOID other = ZR_memm_alloc(tag_of_same_bucket, 1, "test", __LINE__);
    ASSERT_NE(other, nullptr);
    {
        call_trace trace;
        trace.heap().refuse_allocation(1);
        LPVOID section = unwritten();
        EXPECT_EQ(os().cs_allocate(SECTION_TAG, &section), 1);
        EXPECT_EQ(section, nullptr);
        const steps made = trace.calls();
        EXPECT_EQ(made.front(), "malloc 40 = record");
        EXPECT_EQ(std::count(made.begin(), made.end(), "free record"), 1);
        EXPECT_EQ(std::count(made.begin(), made.end(), "pthread_mutex_init(null, attribute)"), 1);
    }
    EXPECT_EQ(ZR_memm_flags(SECTION_TAG, other), 0U);
    EXPECT_EQ(ZR_memm_free(tag_of_same_bucket, other, "test", __LINE__), nullptr);
}

// ---- Entering and leaving

TEST_P(ThreadedCalls, EnterLocksAndLeaveUnlocksTheRecordOfEitherKind)
{
    for (const lock_kind *kind : {&lock_kinds::ORDINARY_SECTION, &lock_kinds::MEM_SYNC_SECTION}) {
        SCOPED_TRACE(kind->name);
        LPVOID section = nullptr;
        ASSERT_EQ(kind->create(os(), &section), 1);
        {
            call_trace trace(section);
            os().cs_enter(section);
            os().cs_enter(section);
            os().cs_leave(section);
            const steps expected = {"pthread_mutex_lock(record)", "pthread_mutex_lock(record)",
                                    "pthread_mutex_unlock(record)"};
            EXPECT_EQ(trace.calls(), expected);
        }
        kind->free(os(), section);
    }
}

TEST_P(ThreadedCalls, EnterAndLeaveIgnoreANullHandle)
{
    call_trace trace;
    os().cs_enter(nullptr);
    os().cs_leave(nullptr);
    EXPECT_EQ(trace.calls(), steps{});
}

TEST_P(ThreadedCalls, EnterAndLeaveDoNotTryAgainAfterAFailure)
{
    LPVOID section = nullptr;
    ASSERT_EQ(os().mem_cs_allocate(&section), 1);
    {
        call_trace trace(section);
        trace.fail(thread_function::MUTEX_LOCK);
        trace.fail(thread_function::MUTEX_UNLOCK);
        os().cs_enter(section);
        os().cs_leave(section);
        const steps expected = {"pthread_mutex_lock(record)", "pthread_mutex_unlock(record)"};
        EXPECT_EQ(trace.calls(), expected);
    }
    os().mem_cs_free(section);
}

// ---- Thread identifier

TEST_P(ThreadedCalls, TheThreadIdentifierIsThePlatformsUnchanged)
{
    for (const uintptr_t identifier : {UINT64_C(0), UINT64_C(1), UINT64_C(0xFEDCBA9876543210), UINT64_MAX}) {
        call_trace trace;
        trace.replace(thread_function::SELF, [=] { return static_cast<long>(identifier); });
        EXPECT_EQ(os().current_thread_id_get(), identifier);
        EXPECT_EQ(trace.calls(), steps{"pthread_self()"});
    }
}

// ---- Opening and releasing a mutex identifier

class ThreadedMutexIdentifier : public ThreadedCalls {
protected:
    void SetUp() override
    {
        ThreadedCalls::SetUp();
        ASSERT_EQ(os().mutex_ID_allocate(&identifier), 0);
    }
    void TearDown() override { os().mutex_ID_free(identifier); }

    LPVOID identifier = nullptr;
};

INSTANTIATE_TEST_SUITE_P(, ThreadedMutexIdentifier, every_name, operations_name);

TEST_P(ThreadedMutexIdentifier, IsItsOwnHandleAndIgnoresTheReservedArgument)
{
    for (const LPVOID reserved : {LPVOID{nullptr}, unwritten(), reinterpret_cast<LPVOID>(UINTPTR_MAX)}) {
        call_trace trace(identifier);
        LPVOID handle = nullptr;
        EXPECT_EQ(os().mutex_open(identifier, reserved, &handle), 1);
        EXPECT_EQ(handle, identifier);
        EXPECT_EQ(os().mutex_release(handle), 1);
        const steps expected = {"pthread_mutex_lock(record)", "pthread_mutex_unlock(record)"};
        EXPECT_EQ(trace.calls(), expected);
    }
}

TEST_P(ThreadedMutexIdentifier, IsNotTakenAndItsHandleNotWrittenWhenTheLockFails)
{
    call_trace trace(identifier);
    trace.fail(thread_function::MUTEX_LOCK);
    LPVOID handle = unwritten();
    EXPECT_EQ(os().mutex_open(identifier, nullptr, &handle), 0);
    EXPECT_EQ(handle, unwritten());
    EXPECT_EQ(trace.calls(), steps{"pthread_mutex_lock(record)"});
}

TEST_P(ThreadedMutexIdentifier, IsNotReleasedWhenTheUnlockFails)
{
    call_trace trace(identifier);
    trace.fail(thread_function::MUTEX_UNLOCK);
    EXPECT_EQ(os().mutex_release(identifier), 0);
    EXPECT_EQ(trace.calls(), steps{"pthread_mutex_unlock(record)"});
}

TEST_P(ThreadedMutexIdentifier, ThatIsNullOpensANullHandleWhichReleases)
{
    call_trace trace;
    LPVOID handle = unwritten();
    EXPECT_EQ(os().mutex_open(nullptr, nullptr, &handle), 1);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(os().mutex_release(nullptr), 1);
    EXPECT_EQ(trace.calls(), steps{});
}

// ---- Events

class ThreadedEvent : public ThreadedCalls {
protected:
    void SetUp() override
    {
        ThreadedCalls::SetUp();
        ASSERT_EQ(os().create_event(&event, 0, nullptr), 1);
    }
    void TearDown() override { os().close_event(event); }

    static UINT &state_of(LPVOID record)
    {
        return *reinterpret_cast<UINT *>(static_cast<BYTE *>(record) + EVENT_STATE_OFFSET);
    }
    UINT &state() const { return state_of(event); }

    // Creation with `trace` fails after exactly `expected`, and leaves null behind.
    static void expect_creation_fails(const call_trace &trace, const steps &expected)
    {
        LPVOID made = unwritten();
        EXPECT_EQ(os().create_event(&made, 1, nullptr), 0);
        EXPECT_EQ(made, nullptr);
        EXPECT_EQ(trace.calls(), expected);
    }

    LPVOID event = nullptr;
};

INSTANTIATE_TEST_SUITE_P(, ThreadedEvent, every_name, operations_name);

const steps event_creation = {
    "malloc 96 = record",
    "pthread_cond_init(record+40, null)",
    "pthread_mutexattr_init(attribute)",
    "pthread_mutexattr_settype(attribute, 1)",
    "pthread_mutex_init(record, attribute)",
    "pthread_mutexattr_destroy(attribute)",
};
const steps wake_up = {"pthread_mutex_lock(record)", "pthread_cond_broadcast(record+40)",
                       "pthread_mutex_unlock(record)"};

TEST_P(ThreadedEvent, IsARecordOfRecursiveMutexConditionAndState)
{
    call_trace trace;
    LPVOID made = nullptr;
    EXPECT_EQ(os().create_event(&made, 1, nullptr), 1);
    EXPECT_EQ(trace.calls(), event_creation);
    EXPECT_EQ(made, trace.heap().calls().front().block);
    os().close_event(made);
}

TEST_P(ThreadedEvent, StartsInTheGivenStateUnchangedAndIgnoresTheReservedArgument)
{
    for (const UINT initial_state : {0U, 1U, 7U, 0x80000000U, UINT32_MAX}) {
        LPVOID made = nullptr;
        EXPECT_EQ(os().create_event(&made, initial_state, reinterpret_cast<LPVOID>(UINTPTR_MAX)), 1);
        EXPECT_EQ(state_of(made), initial_state);
        os().close_event(made);
    }
}

TEST_P(ThreadedEvent, WithStateSevenIsSignalledAndHasStateOneAfterResetAndSet)
{
    state() = 7;
    call_trace trace(event);
    EXPECT_EQ(os().wait_for_event(event), 1);
    EXPECT_EQ(state(), 7U);
    EXPECT_EQ(os().reset_event(event), 1);
    EXPECT_EQ(state(), 0U);
    EXPECT_EQ(os().set_event(event), 1);
    EXPECT_EQ(state(), 1U);
}

TEST_P(ThreadedEvent, HasAStateOf32Bits)
{
    UINT &behind_state = (&state())[1];  // the record is 96 bytes long
    behind_state = UINT32_MAX;
    call_trace trace(event);
    trace.fail(thread_function::COND_WAIT);
    EXPECT_EQ(os().wait_for_event(event), 0);
    EXPECT_EQ(os().set_event(event), 1);
    EXPECT_EQ(os().reset_event(event), 1);
    EXPECT_EQ(behind_state, UINT32_MAX);
}

TEST_P(ThreadedEvent, IsHandedOutWhenItIsWholeAndReadsNullBefore)
{
    call_trace trace;
    LPVOID made = unwritten();
    const auto expect_null = [&] {
        EXPECT_EQ(made, nullptr);
        return 0;
    };
    trace.replace(thread_function::COND_INIT, expect_null);
    trace.replace(thread_function::MUTEX_INIT, expect_null);
    trace.replace(thread_function::MUTEXATTR_DESTROY, expect_null);
    EXPECT_EQ(os().create_event(&made, 0, nullptr), 1);
    EXPECT_NE(made, nullptr);
    EXPECT_EQ(trace.calls(), event_creation);
    os().close_event(made);
}

TEST_P(ThreadedEvent, IsNotMadeWithoutAPlaceForItsHandle)
{
    call_trace trace;
    EXPECT_EQ(os().create_event(nullptr, 1, nullptr), 0);
    EXPECT_EQ(trace.calls(), steps{});
}

TEST_P(ThreadedEvent, IsNotInitialisedWithoutMemory)
{
    call_trace trace;
    trace.heap().refuse_all_allocations();
    expect_creation_fails(trace, {"malloc 96 refused"});
}

TEST_P(ThreadedEvent, IsReleasedWhenItsConditionCannotBeInitialised)
{
    call_trace trace;
    trace.fail(thread_function::COND_INIT);
    expect_creation_fails(trace, {"malloc 96 = record", "pthread_cond_init(record+40, null)", "free record"});
}

TEST_P(ThreadedEvent, IsUndoneWhenItsGuardCannotBeInitialised)
{
    call_trace trace;
    trace.fail(thread_function::MUTEX_INIT);
    expect_creation_fails(trace, {
                                     "malloc 96 = record",
                                     "pthread_cond_init(record+40, null)",
                                     "pthread_mutexattr_init(attribute)",
                                     "pthread_mutexattr_settype(attribute, 1)",
                                     "pthread_mutex_init(record, attribute)",
                                     "pthread_cond_destroy(record+40)",
                                     "free record",
                                     "pthread_mutexattr_destroy(attribute)",
                                 });
}

TEST_P(ThreadedEvent, IsMadeWhateverTheAttributeFunctionsReport)
{
    for (const auto failing : {thread_function::MUTEXATTR_INIT, thread_function::MUTEXATTR_SETTYPE,
                               thread_function::MUTEXATTR_DESTROY}) {
        SCOPED_TRACE(thread_function_names[static_cast<size_t>(failing)]);
        call_trace trace;
        trace.fail(failing);
        LPVOID made = nullptr;
        EXPECT_EQ(os().create_event(&made, 0, nullptr), 1);
        EXPECT_EQ(trace.calls(), event_creation);
        os().close_event(made);
    }
}

TEST_P(ThreadedEvent, IsClosedGuardFirst)
{
    LPVOID made = nullptr;
    ASSERT_EQ(os().create_event(&made, 0, nullptr), 1);
    call_trace trace(made);
    EXPECT_EQ(os().close_event(made), 1);
    const steps expected = {"pthread_mutex_destroy(record)", "pthread_cond_destroy(record+40)",
                            "free record"};
    EXPECT_EQ(trace.calls(), expected);
}

TEST_P(ThreadedEvent, IsClosedWhateverTheDestructionsReport)
{
    for (const auto failing : {thread_function::MUTEX_DESTROY, thread_function::COND_DESTROY}) {
        LPVOID made = nullptr;
        ASSERT_EQ(os().create_event(&made, 0, nullptr), 1);
        call_trace trace(made);
        trace.fail(failing);
        EXPECT_EQ(os().close_event(made), 1);
        const steps expected = {"pthread_mutex_destroy(record)", "pthread_cond_destroy(record+40)",
                                "free record"};
        EXPECT_EQ(trace.calls(), expected);
    }
}

TEST_P(ThreadedEvent, ThatIsNullMakesEveryOperationASuccessThatDoesNothing)
{
    call_trace trace;
    EXPECT_EQ(os().close_event(nullptr), 1);
    EXPECT_EQ(os().set_event(nullptr), 1);
    EXPECT_EQ(os().reset_event(nullptr), 1);
    EXPECT_EQ(os().wait_for_event(nullptr), 1);
    EXPECT_EQ(trace.calls(), steps{});
}

// The new state of set and of reset, which are alike but for it.
struct state_change {
    ZT_BOOL (*sync_operations::*change)(LPVOID event);
    UINT old_state;
    UINT new_state;
};
const state_change state_changes[] = {
    {&sync_operations::set_event, 0, 1},   {&sync_operations::set_event, 7, 1},
    {&sync_operations::set_event, 1, 1},   {&sync_operations::reset_event, 1, 0},
    {&sync_operations::reset_event, 7, 0}, {&sync_operations::reset_event, 0, 0}};

TEST_P(ThreadedEvent, SetAndResetStoreTheStateUnderTheGuardAndWakeAllWaiters)
{
    for (const state_change &tested : state_changes) {
        state() = tested.old_state;
        call_trace trace(event);
        trace.replace(thread_function::MUTEX_LOCK, [&] {
            EXPECT_EQ(state(), tested.old_state);
            return 0;
        });
        trace.replace(thread_function::COND_BROADCAST, [&] {
            EXPECT_EQ(state(), tested.new_state);
            return 0;
        });
        EXPECT_EQ((os().*tested.change)(event), 1);
        EXPECT_EQ(state(), tested.new_state);
        EXPECT_EQ(trace.calls(), wake_up);
    }
}

TEST_P(ThreadedEvent, SetAndResetReportAFailedWakeUpWithTheStateChangedAndTheGuardUnlocked)
{
    for (const state_change &tested : state_changes) {
        state() = tested.old_state;
        call_trace trace(event);
        trace.fail(thread_function::COND_BROADCAST);
        EXPECT_EQ((os().*tested.change)(event), 0);
        EXPECT_EQ(state(), tested.new_state);
        EXPECT_EQ(trace.calls(), wake_up);
    }
}

TEST_P(ThreadedEvent, SetAndResetDoNotTestTheResultsOfLockAndUnlock)
{
    for (const state_change &tested : state_changes) {
        state() = tested.old_state;
        call_trace trace(event);
        trace.fail(thread_function::MUTEX_LOCK);
        trace.fail(thread_function::MUTEX_UNLOCK);
        EXPECT_EQ((os().*tested.change)(event), 1);
        EXPECT_EQ(state(), tested.new_state);
        EXPECT_EQ(trace.calls(), wake_up);
    }
}

const char *const LOCK = "pthread_mutex_lock(record)";
const char *const WAIT = "pthread_cond_wait(record+40, record)";
const char *const UNLOCK = "pthread_mutex_unlock(record)";

TEST_P(ThreadedEvent, ThatIsSignalledIsNotWaitedFor)
{
    for (const UINT signalled : {1U, 7U, UINT32_MAX}) {
        state() = signalled;
        call_trace trace(event);
        EXPECT_EQ(os().wait_for_event(event), 1);
        EXPECT_EQ(trace.calls(), (steps{LOCK, UNLOCK}));
        EXPECT_EQ(state(), signalled);
    }
}

TEST_P(ThreadedEvent, IsWaitedForAgainAfterEveryWakeUpThatFindsNoSignal)
{
    call_trace trace(event);
    int wake_ups = 0;
    trace.replace(thread_function::COND_WAIT, [&] {
        state() = ++wake_ups == 4 ? 9 : 0;
        return 0;
    });
    EXPECT_EQ(os().wait_for_event(event), 1);
    EXPECT_EQ(trace.calls(), (steps{LOCK, WAIT, WAIT, WAIT, WAIT, UNLOCK}));
    EXPECT_EQ(state(), 9U);
}

TEST_P(ThreadedEvent, IsNotWaitedForAnyLongerWhenAWaitFails)
{
    call_trace trace(event);
    trace.fail(thread_function::COND_WAIT);
    EXPECT_EQ(os().wait_for_event(event), 0);
    EXPECT_EQ(trace.calls(), (steps{LOCK, WAIT, UNLOCK}));
    EXPECT_EQ(state(), 0U);
}

TEST_P(ThreadedEvent, ReportsAFailedWaitAfterOnesThatSucceeded)
{
    call_trace trace(event);
    int waits = 0;
    trace.replace(thread_function::COND_WAIT, [&] { return ++waits == 3 ? EPERM : 0; });
    EXPECT_EQ(os().wait_for_event(event), 0);
    EXPECT_EQ(trace.calls(), (steps{LOCK, WAIT, WAIT, WAIT, UNLOCK}));
}

TEST_P(ThreadedEvent, ReportsAFailedWaitEvenIfTheEventIsSignalledByThen)
{
    call_trace trace(event);
    trace.replace(thread_function::COND_WAIT, [&] {
        state() = 1;
        return EINVAL;
    });
    EXPECT_EQ(os().wait_for_event(event), 0);
    EXPECT_EQ(trace.calls(), (steps{LOCK, WAIT, UNLOCK}));
    EXPECT_EQ(state(), 1U);
}

TEST_P(ThreadedEvent, WaitingDoesNotTestTheResultsOfLockAndUnlock)
{
    state() = 1;
    call_trace trace(event);
    trace.fail(thread_function::MUTEX_LOCK);
    trace.fail(thread_function::MUTEX_UNLOCK);
    EXPECT_EQ(os().wait_for_event(event), 1);
    EXPECT_EQ(trace.calls(), (steps{LOCK, UNLOCK}));
}

}  // namespace
