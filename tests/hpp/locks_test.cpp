// Sections, identifiers and events. Built twice, for a process in threaded and one in emulated mode.

#include "hpp/hpp_fixture.h"
#include "support/thread_functions.h"

#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

namespace {

#if defined(PROCESS_IS_EMULATED)
constexpr bool IS_EMULATED = true;
#else
constexpr bool IS_EMULATED = false;
#endif

void settle_mode()
{
    lookup_trace lookups;
    if (IS_EMULATED)
        lookups.hide(thread_function::COND_INIT);
    ASSERT_EQ(OS_threads_support(), IS_EMULATED ? 0u : 1u);
}

template <typename lock> lock make_lock()
{
    if constexpr (std::is_constructible_v<lock, uint64_t>)
        return lock(TAG);
    else
        return lock();
}

template <typename lock> lock adopt_lock(LPVOID handle)
{
    if constexpr (std::is_constructible_v<lock, uint64_t>)
        return lock::adopt(TAG, handle);
    else
        return lock::adopt(handle);
}

template <typename lock> class Lock : public Hpp {
protected:
    static_assert(!std::is_copy_constructible_v<lock> && !std::is_copy_assignable_v<lock>);
    static_assert(std::is_nothrow_move_constructible_v<lock> && std::is_nothrow_move_assignable_v<lock>);

    void SetUp() override { settle_mode(); }
};

using lock_types = testing::Types<qv::section, qv::mem_section, qv::identifier>;

struct lock_name {
    template <typename lock> static std::string GetName(int)
    {
        return std::is_same_v<lock, qv::section>       ? "Section"
               : std::is_same_v<lock, qv::mem_section> ? "MemSection"
                                                       : "Identifier";
    }
};

TYPED_TEST_SUITE(Lock, lock_types, lock_name);

class Event : public Hpp {
protected:
    void SetUp() override { settle_mode(); }
};

}  // namespace

TYPED_TEST(Lock, IsMadeAndEndsWithItsScope)
{
    {
        const TypeParam lock = make_lock<TypeParam>();
        EXPECT_TRUE(lock);
        EXPECT_EQ(this->heap.take_steps(),
                  steps{IS_EMULATED ? "malloc 4 -> block 1" : "malloc 40 -> block 1"});
    }
    EXPECT_EQ(this->heap.take_steps(), steps{"free block 1"});
}

TYPED_TEST(Lock, OfNothingDoesNothing)
{
    TypeParam nothing(qv::none);
    EXPECT_FALSE(nothing);
    EXPECT_EQ(nothing.handle(), nullptr);
    const std::lock_guard inside(nothing);
    EXPECT_EQ(this->heap.take_steps(), steps{});
}

TYPED_TEST(Lock, HandsItsObjectOverWhenItIsMoved)
{
    TypeParam first = make_lock<TypeParam>();
    const LPVOID handle = first.handle();
    TypeParam second = std::move(first);
    EXPECT_FALSE(first);
    EXPECT_EQ(second.handle(), handle);
    TypeParam third = make_lock<TypeParam>();
    this->heap.take_steps();
    third = std::move(second);
    EXPECT_EQ(this->heap.take_steps(), steps{"free block 2"}) << "what it held before";
    EXPECT_EQ(third.handle(), handle);
}

TYPED_TEST(Lock, IsDetachedAndAdopted)
{
    TypeParam first = make_lock<TypeParam>();
    const LPVOID handle = first.detach();
    EXPECT_FALSE(first);
    EXPECT_EQ(this->heap.unreleased(), steps{"block 1"});
    const TypeParam second = adopt_lock<TypeParam>(handle);
    EXPECT_EQ(second.handle(), handle);
}

TEST_F(Event, IsSignalledFromSetToReset)
{
    qv::event event;
    EXPECT_TRUE(event);
    EXPECT_EQ(event.set(), 1);
    EXPECT_EQ(event.wait(), 1);
    EXPECT_EQ(event.reset(), 1);
}

TEST_F(Event, StartsAsItIsTold)
{
    EXPECT_EQ(qv::event(1).wait(), 1);
    EXPECT_EQ(qv::event(7).wait(), 1);
}

TEST_F(Event, HoldsNothingWithoutMemory)
{
    heap.refuse_allocation(0);
    qv::event event;
    EXPECT_FALSE(event);
    EXPECT_EQ(event.set(), 1) << "what a null event gives";
    EXPECT_EQ(event.wait(), 1);
}

TEST_F(Event, IsMovedDetachedAndAdopted)
{
    qv::event first(1), second;
    const LPVOID handle = first.handle();
    second = std::move(first);
    EXPECT_FALSE(first);
    EXPECT_EQ(second.handle(), handle);
    EXPECT_EQ(second.detach(), handle);
    EXPECT_EQ(qv::event::adopt(handle).wait(), 1);
    EXPECT_EQ(heap.unreleased(), steps{});
}

TEST_F(Event, OfNothingIsNotMade)
{
    const qv::event nothing(qv::none);
    EXPECT_FALSE(nothing);
    EXPECT_EQ(heap.take_steps(), steps{});
}

TEST(Identifier, ReportsWhatThePlainCallsReport)
{
    settle_mode();
    qv::identifier identifier;
    EXPECT_EQ(identifier.lock(), 1);
    EXPECT_EQ(identifier.lock(), IS_EMULATED ? 0 : 1);
    EXPECT_EQ(identifier.unlock(), 1);
    EXPECT_EQ(identifier.unlock(), IS_EMULATED ? 0 : 1);
}

TEST(Section, GuardsItsMakingAndItsEnd)
{
    settle_mode();
    using guarded = qv::basic_section<counting_guard>;
    EXPECT_EQ(guards_made_by([] { const guarded section(TAG); }), 2);
    EXPECT_EQ(guards_made_by([] { const guarded nothing; }), 0);
    guarded section(TAG);
    EXPECT_EQ(guards_made_by([&] { const std::lock_guard inside(section); }), 0);
}

// As the manager's own section, which is there before and after everything else.
constinit qv::mem_section global_section(qv::none);

TEST(MemSection, CanBeAGlobalThatIsMadeLater)
{
    settle_mode();
    global_section = qv::mem_section();
    EXPECT_TRUE(global_section);
    global_section = qv::mem_section(qv::none);
    EXPECT_FALSE(global_section);
}

#if defined(PROCESS_IS_EMULATED)

// ---- Objects that are a flag

static UINT flag_of(LPVOID handle)
{
    return *static_cast<UINT *>(handle);
}

TYPED_TEST(Lock, IsTakenFromLockToUnlock)
{
    TypeParam lock = make_lock<TypeParam>();
    {
        const std::lock_guard inside(lock);
        EXPECT_EQ(flag_of(lock.handle()), 1u);
    }
    EXPECT_EQ(flag_of(lock.handle()), 0u);
}

// A threaded one is not made without memory either: the platform does not survive it.
TYPED_TEST(Lock, HoldsNothingWithoutMemoryAndCanBeUsedAllTheSame)
{
    this->heap.refuse_allocation(0);
    TypeParam lock = make_lock<TypeParam>();
    EXPECT_FALSE(lock);
    const std::lock_guard inside(lock);
}

TEST_F(Event, ThatIsNotSignalledDoesNotWait)
{
    EXPECT_EQ(qv::event().wait(), 0);
    EXPECT_EQ(qv::event(0).wait(), 0);
    qv::event event(1);
    event.reset();
    EXPECT_EQ(event.wait(), 0);
}

#else

// ---- Objects between threads

// The C library keeps a block for each new thread, so here nobody looks at the heap.
template <typename lock> class SharedLock : public testing::Test {
protected:
    void SetUp() override { settle_mode(); }
};
TYPED_TEST_SUITE(SharedLock, lock_types, lock_name);

TYPED_TEST(SharedLock, KeepsThreadsApartWithTheStandardGuards)
{
    TypeParam lock = make_lock<TypeParam>();
    int count = 0;
    const auto count_up = [&] {
        for (int i = 0; i < 1000; ++i) {
            const std::lock_guard inside(lock);
            ++count;
        }
    };
    std::thread other(count_up);
    count_up();
    other.join();
    EXPECT_EQ(count, 2000);
}

TYPED_TEST(SharedLock, IsTakenAgainByTheThreadThatHasIt)
{
    TypeParam lock = make_lock<TypeParam>();
    const std::scoped_lock first(lock);
    const std::unique_lock second(lock);
    EXPECT_TRUE(second.owns_lock());
}

TEST(SharedEvent, LetsAThreadGoOnThatWaits)
{
    settle_mode();
    qv::event asked, answered;
    std::thread other([&] {
        asked.wait();
        answered.set();
    });
    EXPECT_EQ(asked.set(), 1);
    EXPECT_EQ(answered.wait(), 1);
    other.join();
}

#endif
