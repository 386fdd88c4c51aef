// Threaded mode over fakes of the thread functions: which of them the operations of critical sections and
// mutex identifiers call, in which order and with what, and what becomes of it when one of them, or the
// heap, fails.

#include "foundation/memory.h"

#include "os/osunix_threaded_calls.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>

namespace {

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
        if (create(&lock) != kind().created)
            throw std::runtime_error("no lock was made");
        return lock;
    }
};

INSTANTIATE_TEST_SUITE_P(, ThreadedLock, testing::Combine(every_threaded_name, every_lock_kind),
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
    EXPECT_EQ(lock, trace.record());
    free(lock);
}

TEST_P(ThreadedLock, IsReleasedBeforeTheAttributeWhenItsInitialisationFails)
{
    const steps expected = {
        "malloc 40 = record",
        "pthread_mutexattr_init(attribute)",
        "pthread_mutexattr_settype(attribute, 1)",
        "pthread_mutex_init(record, attribute)",
        "free record",
        "pthread_mutexattr_destroy(attribute)",
    };
    for (const int code : failure_codes) {
        call_trace trace;
        trace.fail(thread_function::MUTEX_INIT, code);
        LPVOID lock = unwritten();
        EXPECT_EQ(create(&lock), kind().not_created) << "with the failure " << code;
        EXPECT_EQ(lock, nullptr);
        EXPECT_EQ(trace.calls(), expected);
    }
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

TEST_P(ThreadedLock, StandsInTheOutputOnlyWhenTheAttributeIsDestroyed)
{
    call_trace trace;
    LPVOID lock = unwritten();
    trace.replace(thread_function::MUTEXATTR_DESTROY, [&lock] {
        EXPECT_EQ(lock, unwritten()) << "the output was written before";
        return 0;
    });
    EXPECT_EQ(create(&lock), kind().created);
    EXPECT_EQ(lock, trace.record());
    free(lock);
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

TEST_P(ThreadedLock, LeavesErrnoAloneThroughoutItsLifeAndWhenItIsNotMade)
{
    errno = SENTINEL_ERRNO;
    call_trace trace;
    LPVOID lock = nullptr;
    create(&lock);
    kind().take(os(), lock);
    kind().give_back(os(), lock);
    free(lock);
    trace.fail(thread_function::MUTEX_INIT);
    create(&lock);
    EXPECT_EQ(errno, SENTINEL_ERRNO);
}

// ---- Where the record of a critical section belongs

INSTANTIATE_TEST_SUITE_P(, ThreadedCalls, every_threaded_name, operations_name);

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
        const steps expected = {
            "malloc 40 = record",
            "calloc 360 refused",
            "free record",
            "pthread_mutexattr_init(attribute)",
            "pthread_mutexattr_settype(attribute, 1)",
            "pthread_mutex_init(null, attribute)",
            "pthread_mutexattr_destroy(attribute)",
        };
        EXPECT_EQ(trace.calls(), expected);
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

INSTANTIATE_TEST_SUITE_P(, ThreadedMutexIdentifier, every_threaded_name, operations_name);

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
    for (const int code : failure_codes) {
        call_trace trace(identifier);
        trace.fail(thread_function::MUTEX_LOCK, code);
        LPVOID handle = unwritten();
        EXPECT_EQ(os().mutex_open(identifier, nullptr, &handle), 0) << "with the failure " << code;
        EXPECT_EQ(handle, unwritten());
        EXPECT_EQ(trace.calls(), steps{"pthread_mutex_lock(record)"});
    }
}

TEST_P(ThreadedMutexIdentifier, IsNotReleasedWhenTheUnlockFails)
{
    for (const int code : failure_codes) {
        call_trace trace(identifier);
        trace.fail(thread_function::MUTEX_UNLOCK, code);
        EXPECT_EQ(os().mutex_release(identifier), 0) << "with the failure " << code;
        EXPECT_EQ(trace.calls(), steps{"pthread_mutex_unlock(record)"});
    }
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

}  // namespace
