// Threaded mode over fakes of the thread functions: which of them the operations of events call, in which
// order and with what, and what becomes of it when one of them, or the heap, fails.

#include "os/osunix_threaded_calls.h"
#include "os/unwritable_output.h"

#include <errno.h>
#include <gtest/gtest.h>

namespace {

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

INSTANTIATE_TEST_SUITE_P(, ThreadedEvent, every_threaded_name, operations_name);

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
    EXPECT_EQ(made, trace.record());
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

TEST_P(ThreadedEvent, HasItsHandleSetToNullBeforeTheHeapIsAsked)
{
    expect_output_is_written_before_the_heap_is_asked(os());
}

TEST_P(ThreadedEvent, IsNotInitialisedWithoutMemory)
{
    call_trace trace;
    trace.heap().refuse_all_allocations();
    expect_creation_fails(trace, {"malloc 96 refused"});
}

TEST_P(ThreadedEvent, IsReleasedWhenItsConditionCannotBeInitialised)
{
    for (const int code : failure_codes) {
        call_trace trace;
        trace.fail(thread_function::COND_INIT, code);
        expect_creation_fails(trace,
                              {"malloc 96 = record", "pthread_cond_init(record+40, null)", "free record"});
    }
}

TEST_P(ThreadedEvent, IsUndoneWhenItsGuardCannotBeInitialised)
{
    const steps undone_creation = {
        "malloc 96 = record",
        "pthread_cond_init(record+40, null)",
        "pthread_mutexattr_init(attribute)",
        "pthread_mutexattr_settype(attribute, 1)",
        "pthread_mutex_init(record, attribute)",
        "pthread_cond_destroy(record+40)",
        "free record",
        "pthread_mutexattr_destroy(attribute)",
    };
    for (const int code : failure_codes) {
        call_trace trace;
        trace.fail(thread_function::MUTEX_INIT, code);
        expect_creation_fails(trace, undone_creation);
    }
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
    for (const state_change &tested : state_changes)
        for (const int code : failure_codes) {
            state() = tested.old_state;
            call_trace trace(event);
            trace.fail(thread_function::COND_BROADCAST, code);
            EXPECT_EQ((os().*tested.change)(event), 0) << "with the failure " << code;
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
    for (const UINT signalled : {1U, 7U, 0x10000U, 0x80000000U, UINT32_MAX}) {
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
    for (const int code : failure_codes) {
        call_trace trace(event);
        trace.fail(thread_function::COND_WAIT, code);
        EXPECT_EQ(os().wait_for_event(event), 0) << "with the failure " << code;
        EXPECT_EQ(trace.calls(), (steps{LOCK, WAIT, UNLOCK}));
        EXPECT_EQ(state(), 0U);
    }
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

TEST_P(ThreadedEvent, LeavesErrnoAloneThroughoutItsLifeAndWhenItIsNotMade)
{
    call_trace trace;
    errno = SENTINEL_ERRNO;
    LPVOID made = nullptr;
    os().create_event(&made, 0, nullptr);
    os().set_event(made);
    os().wait_for_event(made);
    os().reset_event(made);
    os().close_event(made);
    trace.fail(thread_function::MUTEX_INIT);
    os().create_event(&made, 0, nullptr);
    trace.fail(thread_function::COND_INIT);
    os().create_event(&made, 0, nullptr);
    EXPECT_EQ(errno, SENTINEL_ERRNO);
}

}  // namespace
