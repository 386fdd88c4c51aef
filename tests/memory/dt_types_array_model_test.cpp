// The pointer array against a simple model, at random.

#include "memory/dt_types_array_fixture.h"

#include <algorithm>
#include <random>

namespace {

struct array_model {
    element_list elements;
    uint64_t capacity = 0;
    uint64_t increment;
    bool is_sorted;
    bool keeps_order;  // never removes other than in order
};

class PointerArrayModel : public PointerArray {
protected:
    uint64_t random_below(uint64_t limit) { return random() % limit; }

    // Refuse one of the next allocations now and then; its number, or a number too high for any.
    unsigned refuse_at_random(uint64_t allocation_limit)
    {
        if (random_below(6) != 0)
            return ~0u;
        const auto refused = static_cast<unsigned>(random_below(allocation_limit));
        heap.refuse_allocation(refused);
        return refused;
    }

    void add_one(ZT_DT_ANY *array, array_model &model)
    {
        const uintptr_t value = random_below(300);
        const unsigned refused = refuse_at_random(2);
        uint64_t index = UNWRITTEN;
        const ZT_ERRCOUNT status = ZR_array_ptr_add(array, element(value), &index);
        heap.allow_allocations();

        const bool is_full = model.elements.size() == model.capacity;
        if (is_full && refused == 0) {
            EXPECT_EQ(status, -1000);
            EXPECT_EQ(index, UNWRITTEN);
            return;
        }
        if (is_full)
            model.capacity += model.increment;
        EXPECT_EQ(status, 0);
        auto place = model.elements.end();
        if (model.is_sorted)
            place = std::find_if(model.elements.begin(), model.elements.end(),
                                 [=](uintptr_t stored) { return stored / 10 > value / 10; });
        if (place != model.elements.end() && refused == (is_full ? 1u : 0u)) {
            EXPECT_EQ(index, UNWRITTEN) << "the rebuild was refused";
            return;
        }
        EXPECT_EQ(index, static_cast<uint64_t>(place - model.elements.begin()));
        model.elements.insert(place, value);
    }

    void remove_one(ZT_DT_ANY *array, array_model &model)
    {
        const uint64_t index = random_below(model.elements.size() + 2);
        const bool in_order = model.keeps_order || random_below(2) == 0;
        const unsigned refused = refuse_at_random(1);
        uint64_t removed = UNWRITTEN;
        EXPECT_EQ(ZR_array_ptr_remove_ex(array, index, &removed, in_order), 0);
        heap.allow_allocations();
        EXPECT_EQ(removed, index < model.elements.size() ? 1u : 0u);
        if (index < model.elements.size()) {
            if (!in_order)
                std::swap(model.elements[index], model.elements.back());
            model.elements.erase(in_order ? model.elements.begin() + static_cast<ptrdiff_t>(index)
                                          : model.elements.end() - 1);
        }
        const uint64_t needed =
            (model.elements.size() + model.increment - 1) / model.increment * model.increment;
        const bool needs_vector = needed != 0;
        if (!needs_vector || refused != 0)
            model.capacity = needed;
    }

    void set_one(ZT_DT_ANY *array, array_model &model)
    {
        const uint64_t index = random_below(model.elements.size() + 2);
        const uintptr_t value = random_below(300);
        const bool is_allowed = !model.is_sorted && index < model.elements.size();
        EXPECT_EQ(ZR_array_ptr_set(array, index, element(value)), is_allowed ? 0 : -1);
        if (is_allowed)
            model.elements[index] = value;
    }

    void search_one(ZT_DT_ANY *array, const array_model &model)
    {
        const uintptr_t key = random_below(310);
        const auto matches = [=](uintptr_t stored) {
            return stored / 10 == key / 10;
        };
        const auto first = std::find_if(model.elements.begin(), model.elements.end(), matches);
        const uint64_t index = search(array, key);
        if (first == model.elements.end()) {
            EXPECT_EQ(index, UNWRITTEN);
        } else if (!model.is_sorted) {
            EXPECT_EQ(index, static_cast<uint64_t>(first - model.elements.begin()));
        } else if (model.keeps_order || index != UNWRITTEN) {
            ASSERT_LT(index, model.elements.size());
            EXPECT_TRUE(matches(model.elements[index]));
        }
    }

    void expect_agreement(ZT_DT_ANY *array, const array_model &model)
    {
        EXPECT_EQ(elements_of(array), model.elements);
        EXPECT_EQ(record_of(array).capacity, model.capacity);
        EXPECT_EQ(record_of(array).slots == nullptr, model.capacity == 0);
    }

    // Phases of growth and of decline in turn, so that arrays get long and get empty.
    void take_random_steps(uint64_t increment, bool is_sorted, bool keeps_order)
    {
        array_model model = {{}, 0, increment, is_sorted, keeps_order};
        ZT_DT_ANY *array = create(increment, is_sorted, compare_tens);
        for (int step = 0; step < 3000 && !HasFailure(); ++step) {
            SCOPED_TRACE(words("step ", step));
            compared_pairs.clear();
            const uint64_t additions = step / 250 % 2 == 0 ? 50 : 25;
            const uint64_t choice = random_below(100);
            if (choice < additions)
                add_one(array, model);
            else if (choice < 75)
                remove_one(array, model);
            else if (choice < 85)
                set_one(array, model);
            else
                search_one(array, model);
            expect_agreement(array, model);
        }
        EXPECT_EQ(ZR_array_ptr_delete(array), 0);
        EXPECT_EQ(ZR_memm_free_all(TAG), -1);
    }

    std::mt19937 random{23};
};

}  // namespace

TEST_F(PointerArrayModel, RandomOperationsOnAnUnsortedArrayAgreeWithTheModel)
{
    for (const uint64_t increment : {1, 3, 10, 64})
        take_random_steps(increment, false, false);
}

TEST_F(PointerArrayModel, RandomOperationsOnASortedArrayAgreeWithTheModel)
{
    for (const uint64_t increment : {1, 3, 10, 64})
        take_random_steps(increment, true, true);
}

TEST_F(PointerArrayModel, RandomOperationsOnAnArrayThatLosesItsOrderAgreeWithTheModel)
{
    for (const uint64_t increment : {1, 3, 10, 64})
        take_random_steps(increment, true, false);
}
