// The owner: a tag that is released at the end of its scope.

#include "hpp/hpp_fixture.h"

#include <stdlib.h>

#include <type_traits>
#include <utility>

namespace {

static_assert(!std::is_copy_constructible_v<qv::owner> && !std::is_copy_assignable_v<qv::owner>);
static_assert(std::is_nothrow_move_constructible_v<qv::owner> &&
              std::is_nothrow_move_assignable_v<qv::owner>);

using Owner = Hpp;

bool is_recorded(uint64_t tag, LPVOID block)
{
    return ZR_memm_flags(tag, block) == ZR_MEMM_FLAG_RECORDED;
}

struct point {
    int x, y;
    point(int given_x, int given_y) : x(given_x), y(given_y) {}
};

struct size {
    int width;
    int height = 7;
};

}  // namespace

TEST_F(Owner, DrawsAUniqueTag)
{
    const uint64_t before = ZR_memm_unique_tag_get("test", __LINE__);
    const qv::owner first, second;
    EXPECT_EQ(first.tag(), before + 1);
    EXPECT_EQ(second.tag(), before + 2);
}

TEST_F(Owner, ReleasesItsBlocksAndNoOthersAtTheEndOfItsScope)
{
    const qv::owner kept(TAG + 1);
    LPVOID other = ZR_memm_alloc(kept.tag(), 8, "test", __LINE__);
    {
        qv::owner owner(TAG);
        EXPECT_TRUE(owner);
        EXPECT_EQ(owner.tag(), TAG);
        EXPECT_TRUE(is_recorded(TAG, owner.alloc(10)));
        EXPECT_TRUE(is_recorded(TAG, owner.alloc(20)));
        heap.take_steps();
    }
    EXPECT_EQ(heap.take_steps(), steps{"free block 2..3"});
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
    EXPECT_TRUE(is_recorded(kept.tag(), other));
}

TEST_F(Owner, AsksTheHeapForWhatThePlainCallsAskFor)
{
    qv::owner owner(TAG);
    LPVOID block = owner.alloc(10);
    block = owner.realloc(block, 20);
    EXPECT_EQ(owner.flags(block), ZR_MEMM_FLAG_RECORDED);
    EXPECT_EQ(owner.free(block), nullptr);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 10 -> block 1", "malloc 20 -> block 2", "free block 1..2"}));
}

TEST_F(Owner, ReportsWhatThePlainCallsReport)
{
    qv::owner owner(TAG), stranger(TAG + 1);
    LPVOID block = owner.alloc(10);
    EXPECT_EQ(stranger.free(block), block);
    EXPECT_EQ(stranger.realloc(block, 20), nullptr);
    EXPECT_EQ(stranger.disassociate(block), block);
    EXPECT_EQ(stranger.flags(block), 0u);
    EXPECT_EQ(stranger.free_all(), -1);
    EXPECT_EQ(owner.free_all(), 1);
    EXPECT_EQ(owner.free(nullptr), nullptr);
}

TEST_F(Owner, TakesABlockOfTheHeapAndGivesItBack)
{
    qv::owner owner(TAG);
    LPVOID block = malloc(10);
    EXPECT_EQ(owner.associate(block, 10), block);
    EXPECT_EQ(owner.flags(block), ZR_MEMM_FLAG_RECORDED);
    EXPECT_EQ(owner.disassociate(block), nullptr);
    EXPECT_EQ(owner.associate(nullptr, 10), nullptr);
    free(block);
}

TEST_F(Owner, KeepsItsTagWhenItsBlocksAreReleased)
{
    qv::owner owner(TAG);
    owner.alloc(10);
    EXPECT_EQ(owner.free_all(), 1);
    EXPECT_EQ(owner.tag(), TAG);
}

TEST_F(Owner, LosesABlockWhoseResizeIsRefused)
{
    qv::owner owner(TAG);
    LPVOID block = owner.alloc(10);
    heap.refuse_allocation(0);
    EXPECT_EQ(owner.realloc(block, 20), nullptr);
    EXPECT_EQ(owner.flags(block), 0u);
}

TEST_F(Owner, MakesAnObjectOfItsArguments)
{
    qv::owner owner(TAG);
    const point *made = owner.make<point>(3, 4);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->x, 3);
    EXPECT_EQ(made->y, 4);
    const size *without_constructor = owner.make<size>(5);
    ASSERT_NE(without_constructor, nullptr);
    EXPECT_EQ(without_constructor->width, 5);
    EXPECT_EQ(without_constructor->height, 7);
    EXPECT_EQ(*owner.make<int>(), 0);
    EXPECT_EQ(owner.free_all(), 3);
}

TEST_F(Owner, MakesNoObjectWithoutMemory)
{
    qv::owner owner(TAG);
    heap.refuse_allocation(0);
    EXPECT_EQ(owner.make<point>(3, 4), nullptr);
    heap.refuse_allocation(0);
    EXPECT_EQ(owner.alloc(10), nullptr);
    EXPECT_EQ(owner.free_all(), -1);
}

TEST_F(Owner, HandsItsTagOverWhenItIsMoved)
{
    qv::owner first(TAG);
    LPVOID block = first.alloc(10);
    qv::owner second = std::move(first);
    EXPECT_FALSE(first);
    EXPECT_EQ(second.tag(), TAG);
    EXPECT_TRUE(is_recorded(TAG, block));
}

TEST_F(Owner, ReleasesWhatItHeldWhenAnotherIsMovedToIt)
{
    qv::owner first(TAG), second(TAG + 1);
    LPVOID block = first.alloc(10);
    second.alloc(20);
    heap.take_steps();
    second = std::move(first);
    EXPECT_EQ(heap.take_steps(), steps{"free block 2"});
    EXPECT_EQ(second.tag(), TAG);
    EXPECT_TRUE(is_recorded(TAG, block));
}

TEST_F(Owner, StaysWhatItIsWhenMovedToItself)
{
    qv::owner owner(TAG);
    owner.alloc(10);
    qv::owner &same = owner;
    owner = std::move(same);
    EXPECT_EQ(owner.free_all(), 1);
}

TEST_F(Owner, ReleasesNothingOnceItIsDetached)
{
    uint64_t tag = 0;
    {
        qv::owner owner(TAG);
        owner.alloc(10);
        tag = owner.detach();
        EXPECT_FALSE(owner);
    }
    EXPECT_EQ(tag, TAG);
    EXPECT_EQ(ZR_memm_free_all(TAG), 1);
}

TEST_F(Owner, OfNothingReleasesNothing)
{
    {
        const qv::owner nothing(qv::none);
        EXPECT_FALSE(nothing);
        EXPECT_EQ(nothing.tag(), 0u);
    }
    EXPECT_EQ(heap.take_steps(), steps{});
}

TEST_F(Owner, GuardsEachCallOfTheManager)
{
    using guarded = qv::basic_owner<counting_guard>;
    EXPECT_EQ(guards_made_by([] { const guarded owner; }), 2) << "drawing its tag, and releasing it";
    EXPECT_EQ(guards_made_by([] { const guarded owner(TAG); }), 1);
    EXPECT_EQ(guards_made_by([] { const guarded nothing(qv::none); }), 0);
    guarded owner(TAG);
    LPVOID block = nullptr;
    EXPECT_EQ(guards_made_by([&] { block = owner.alloc(10); }), 1);
    EXPECT_EQ(guards_made_by([&] { block = owner.realloc(block, 20); }), 1);
    EXPECT_EQ(guards_made_by([&] { EXPECT_NE(owner.flags(block), 0u); }), 1);
    EXPECT_EQ(guards_made_by([&] { owner.disassociate(block); }), 1);
    EXPECT_EQ(guards_made_by([&] { owner.associate(block, 20); }), 1);
    EXPECT_EQ(guards_made_by([&] { owner.free(block); }), 1);
    EXPECT_EQ(guards_made_by([&] { owner.free_all(); }), 1);
    EXPECT_EQ(guards_made_by([&] { owner.make<int>(); }), 1);
}

TEST(CallSite, IsTheLineOfTheCall)
{
    const auto line_of = [](qv::call_site from = qv::call_site()) {
        return from.line;
    };
    EXPECT_EQ(line_of(), __LINE__);
    EXPECT_STREQ(qv::call_site().file, __FILE__);
}
