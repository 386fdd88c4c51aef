// The typed array and its iterators.

#include "hpp/hpp_fixture.h"

#include <algorithm>
#include <iterator>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

struct page {
    int number;
    char copy = 'a';
};

// Both search and insertion compare by the number alone.
INT compare_pages(const page *a, const page *b)
{
    return a->number - b->number;
}

using pages = qv::array<page>;

static_assert(!std::is_copy_constructible_v<pages> && !std::is_copy_assignable_v<pages>);
static_assert(std::is_nothrow_move_constructible_v<pages> && std::is_nothrow_move_assignable_v<pages>);
static_assert(std::random_access_iterator<pages::iterator>);

class TypedArray : public Hpp {
protected:
    template <typename array> static std::vector<int> numbers_in(const array &all)
    {
        std::vector<int> numbers;
        for (const page *each : all)
            numbers.push_back(each->number);
        return numbers;
    }

    page one{1}, two{2}, three{3};
};

using numbers = std::vector<int>;

}  // namespace

TEST_F(TypedArray, KeepsElementsInTheOrderOfAdding)
{
    pages all(TAG, 2);
    uint64_t index = 9;
    EXPECT_EQ(all.add(&two, &index), 0);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(all.add(&three), 0);
    EXPECT_EQ(all.add(&one), 0);
    EXPECT_EQ(all.size(), 3u);
    EXPECT_EQ(numbers_in(all), (numbers{2, 3, 1}));
    EXPECT_EQ(all[2], &one);
    EXPECT_EQ(all[3], nullptr);
}

TEST_F(TypedArray, EndsWithItsScope)
{
    {
        pages all(TAG, 2);
        all.add(&one);
        EXPECT_NE(ZR_memm_flags(TAG, all.handle()), 0u);
    }
    EXPECT_EQ(ZR_memm_free_all(TAG), -1);
}

TEST_F(TypedArray, AsksTheHeapForWhatThePlainCallsAskFor)
{
    ZT_DT_ANY *plain = nullptr;
    ZR_array_ptr_alloc(TAG, &plain, 2, 0, nullptr);
    ZR_array_ptr_add(plain, &one, nullptr);
    ZR_array_ptr_remove(plain, 0, nullptr);
    ZR_array_ptr_delete(plain);
    const steps expected = heap.take_steps();
    heap.start_over();
    {
        pages all(TAG, 2);
        all.add(&one);
        all.remove(0);
    }
    EXPECT_EQ(heap.take_steps(), expected);
}

TEST_F(TypedArray, KeepsTheOrderOfItsComparator)
{
    pages all = pages::sorted<compare_pages>(TAG, 4);
    page same_as_two{2, 'b'};
    for (page *each : {&three, &two, &one, &same_as_two})
        EXPECT_EQ(all.add(each), 0);
    EXPECT_EQ(numbers_in(all), (numbers{1, 2, 2, 3}));
    EXPECT_EQ(all[2], &same_as_two) << "equal elements keep their order of insertion";
    EXPECT_EQ(all.set(0, &three), ZR_ERR_REFUSED);
}

TEST_F(TypedArray, FindsTheStoredElementInBothOrders)
{
    page key{2, 'k'}, missing{7};
    for (const bool is_sorted : {false, true}) {
        pages all =
            is_sorted ? pages::sorted<compare_pages>(TAG, 4) : pages::searchable<compare_pages>(TAG, 4);
        for (page *each : {&one, &two, &three})
            all.add(each);
        page *found = nullptr;
        EXPECT_EQ(all.find(&key, found), 0);
        EXPECT_EQ(found, &two);
        uint64_t index = 9;
        EXPECT_EQ(all.index_get(&key, &index), 0);
        EXPECT_EQ(index, 1u);
        EXPECT_EQ(all.find(&missing, found), ZR_ERR_REFUSED);
        EXPECT_EQ(all.index_get(&missing, &index), ZR_ERR_REFUSED);
        EXPECT_EQ(found, &two) << "a failure leaves the output as it was";
        EXPECT_EQ(index, 1u);
    }
}

TEST_F(TypedArray, GetsAndSetsElements)
{
    pages all(TAG, 4);
    all.add(&one);
    EXPECT_EQ(all.set(0, &two), 0);
    EXPECT_EQ(all.set(1, &two), ZR_ERR_REFUSED);
    page *stored = nullptr;
    EXPECT_EQ(all.get(0, stored), 0);
    EXPECT_EQ(stored, &two);
    EXPECT_EQ(all.get(1, stored), ZR_ERR_REFUSED);
    EXPECT_EQ(stored, &two) << "a failure leaves the output as it was";
}

TEST_F(TypedArray, RemovesWithAndWithoutKeepingTheOrder)
{
    pages all(TAG, 4);
    for (page *each : {&one, &two, &three, &one})
        all.add(each);
    uint64_t removed = 9;
    EXPECT_EQ(all.remove_ex(0, &removed, 1), 0);
    EXPECT_EQ(removed, 1u);
    EXPECT_EQ(numbers_in(all), (numbers{2, 3, 1}));
    EXPECT_EQ(all.remove(0, &removed), 0);
    EXPECT_EQ(numbers_in(all), (numbers{1, 3}));
    EXPECT_EQ(all.remove(2, &removed), 0);
    EXPECT_EQ(removed, 0u);
}

TEST_F(TypedArray, HoldsElementsThatAreConstant)
{
    const page constant{4};
    auto all = qv::array<const page>::sorted<compare_pages>(TAG, 4);
    EXPECT_EQ(all.add(&constant), 0);
    EXPECT_EQ(all.add(&one), 0);
    EXPECT_EQ(numbers_in(all), (numbers{1, 4}));
}

TEST_F(TypedArray, IteratesFromAnyPlace)
{
    pages all(TAG, 4);
    for (page *each : {&one, &two, &three})
        all.add(each);
    const pages::iterator begin = all.begin(), end = all.end();
    EXPECT_EQ(end - begin, 3);
    EXPECT_EQ(*(end - 1), &three);
    EXPECT_EQ(begin[1], &two);
    EXPECT_EQ(*(1 + begin), &two);
    pages::iterator place = end;
    EXPECT_EQ(*--place, &three);
    EXPECT_EQ(*place--, &three);
    EXPECT_EQ(*place++, &two);
    EXPECT_EQ(*place, &three);
    EXPECT_EQ(++place, end);
    EXPECT_EQ(place -= 3, begin);
    EXPECT_TRUE(begin < end && end > begin && begin <= place && begin >= place && begin != end);
    EXPECT_EQ(*end, nullptr);
}

TEST_F(TypedArray, ServesTheStandardAlgorithms)
{
    pages all(TAG, 4);
    for (page *each : {&one, &two, &three})
        all.add(each);
    EXPECT_EQ(std::count_if(all.begin(), all.end(), [](const page *each) { return each->number > 1; }), 2);
    EXPECT_EQ(std::find(all.begin(), all.end(), &three) - all.begin(), 2);
    EXPECT_EQ(std::vector<page *>(all.begin(), all.end()), (std::vector<page *>{&one, &two, &three}));
    const auto place = std::ranges::lower_bound(all, 2, {}, &page::number);
    EXPECT_EQ(*place, &two);
}

TEST_F(TypedArray, OfNothingHasNoElementsAndTakesNone)
{
    pages nothing;
    page *stored = &one;
    uint64_t index = 9;
    EXPECT_FALSE(nothing);
    EXPECT_TRUE(nothing.empty());
    EXPECT_EQ(nothing.begin(), nothing.end());
    EXPECT_EQ(nothing[0], nullptr);
    EXPECT_EQ(nothing.add(&one, &index), ZR_ERR_REFUSED);
    EXPECT_EQ(nothing.get(0, stored), ZR_ERR_REFUSED);
    EXPECT_EQ(nothing.remove(0, &index), ZR_ERR_REFUSED);
    EXPECT_EQ(stored, &one);
    EXPECT_EQ(index, 9u);
    EXPECT_EQ(heap.take_steps(), steps{});
}

TEST_F(TypedArray, HandsItsElementsOverWhenItIsMoved)
{
    pages first(TAG, 4), second(TAG, 4);
    first.add(&one);
    ZT_DT_ANY *const handle = first.handle();
    second = std::move(first);
    EXPECT_FALSE(first);
    EXPECT_EQ(second.handle(), handle);
    const pages third = std::move(second);
    EXPECT_EQ(numbers_in(third), numbers{1});
    EXPECT_EQ(heap.unreleased(), (steps{"block 1", "block 3"})) << "the array that was assigned to has ended";
}

TEST_F(TypedArray, IsDetachedAndAdopted)
{
    pages first(TAG, 4);
    first.add(&one);
    ZT_DT_ANY *const handle = first.detach();
    EXPECT_FALSE(first);
    const pages second = pages::adopt(handle);
    EXPECT_EQ(numbers_in(second), numbers{1});
}

TEST_F(TypedArray, EveryRefusalInTurnIsReportedAndLeavesNothingBehind)
{
    // The record, then three times the vector: the second and the third element come in front of another.
    for (unsigned n = 0; n < 4; ++n) {
        heap.refuse_allocation(n);
        pages all = pages::sorted<compare_pages>(TAG, 4);
        EXPECT_EQ(bool(all), n != 0);
        const ZT_ERRCOUNT without_array = n == 0 ? ZR_ERR_REFUSED : 0;
        EXPECT_EQ(all.add(&three), n == 1 ? ZR_ERR_NO_MEMORY : without_array);
        uint64_t index = UINT64_MAX;
        EXPECT_EQ(all.add(&two, &index), without_array);
        EXPECT_EQ(index == UINT64_MAX, n == 0 || n == 2) << "0, and nothing added: the index alone tells";
        EXPECT_EQ(all.add(&one), without_array);
        EXPECT_EQ(all.size(), (numbers{0, 2, 2, 2})[n]);
    }
}

TEST_F(TypedArray, GuardsTheCallsThatReachTheManager)
{
    using guarded = qv::array<page, counting_guard>;
    EXPECT_EQ(guards_made_by([] { const guarded all(TAG, 4); }), 2) << "making and ending it";
    EXPECT_EQ(guards_made_by([] { const guarded nothing; }), 0);
    guarded all(TAG, 4);
    EXPECT_EQ(guards_made_by([&] { all.add(&one); }), 1);
    EXPECT_EQ(guards_made_by([&] { numbers_in(all); }), 0);
    EXPECT_EQ(guards_made_by([&] { all.set(0, &two); }), 0);
    EXPECT_EQ(guards_made_by([&] { all.remove_ex(7, nullptr, 1); }), 1);
    EXPECT_EQ(guards_made_by([&] { all.remove(0); }), 1);
}
