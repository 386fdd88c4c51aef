// The memory manager against its model, at random.

#include "memory/dt_types_memory_fixture.h"
#include "memory/memory_model.h"

#include <stdlib.h>

#include <iterator>
#include <random>

namespace {

class MemoryManagerModel : public MemoryManager {
protected:
    size_t random_below(size_t limit) { return random() % limit; }

    uint64_t random_tag()
    {
        static constexpr uint64_t TAGS[] = {5,  37, 69,         101,        UINT64_C(0xF000000000000005),
                                            32, 64, 0x10000000, 0x10000020, 31};
        return TAGS[random_below(std::size(TAGS))];
    }

    unsigned random_block()
    {
        auto place = model.blocks.begin();
        std::advance(place, static_cast<ptrdiff_t>(random_below(model.blocks.size())));
        return place->first;
    }

    // Refuse one allocation of the next operation now and then.
    void refuse_at_random()
    {
        if (random_below(8) != 0)
            return;
        const auto refused = static_cast<unsigned>(random_below(3));
        heap.refuse_allocation(refused);
        model.refuse_allocation(refused);
    }

    void expect_same_steps()
    {
        heap.allow_allocations();
        EXPECT_EQ(heap.take_single_steps(), model.take_steps());
    }

    void expect_block(LPVOID made, unsigned number)
    {
        if (number == 0)
            EXPECT_EQ(made, nullptr);
        else
            EXPECT_EQ(made, block(number));
    }

    void fill_at_random(unsigned number)
    {
        memory_model::block_facts &facts = model.blocks.at(number);
        facts.filling = static_cast<unsigned char>(random());
        fill_with_byte(block(number), facts.filling, facts.size);
    }

    void expect_filled(unsigned number, size_t size)
    {
        EXPECT_TRUE(is_filled_with_byte(block(number), model.blocks.at(number).filling, size));
    }

    void allocate_one(uint64_t tag, bool by_realloc_of_null)
    {
        const size_t size = random_below(200);
        refuse_at_random();
        LPVOID made = by_realloc_of_null ? reallocate(tag, nullptr, size) : allocate(tag, size);
        const unsigned number =
            by_realloc_of_null ? model.reallocate_null(tag, size) : model.allocate(tag, size);
        expect_same_steps();
        expect_block(made, number);
        if (number != 0)
            fill_at_random(number);
    }

    void associate_one(uint64_t tag)
    {
        const size_t size = random_below(200);
        LPVOID own = malloc(size);
        const unsigned number = model.allocate_elsewhere(size);
        refuse_at_random();
        LPVOID result = ZR_memm_associate(tag, own, size);
        const bool is_recorded = model.associate(tag, number, size);
        expect_same_steps();
        EXPECT_EQ(result, is_recorded ? own : nullptr);
        if (is_recorded) {
            fill_at_random(number);
        } else {
            free(own);
            heap.take_steps();
        }
    }

    void reallocate_one(unsigned number)
    {
        const memory_model::block_facts before = model.blocks.at(number);
        const size_t size = random_below(200);
        refuse_at_random();
        LPVOID result = reallocate(before.tag, block(number), size);
        const unsigned moved = model.reallocate(number, size);
        expect_same_steps();
        expect_block(result, moved);
        if (moved != 0) {
            expect_filled(moved, std::min(size, before.size));
            fill_at_random(moved);
        }
    }

    void remove_one(unsigned number, bool by_free)
    {
        const memory_model::block_facts facts = model.blocks.at(number);
        LPVOID leaving = block(number);
        expect_filled(number, facts.size);
        if (by_free) {
            EXPECT_EQ(release(facts.tag, leaving), nullptr);
            model.release(number);
        } else {
            EXPECT_EQ(ZR_memm_disassociate(facts.tag, leaving), nullptr);
            model.disassociate(number);
        }
        expect_same_steps();
        if (!by_free) {
            free(leaving);
            heap.take_steps();
        }
    }

    // Under a tag of any kind; nothing may happen unless it is the block's own.
    void probe(unsigned number, uint64_t tag)
    {
        LPVOID probed = block(number);
        const bool is_own_tag = model.blocks.at(number).tag == tag;
        EXPECT_EQ(ZR_memm_flags(tag, probed), is_own_tag ? 2u : 0u);
        if (!is_own_tag) {
            EXPECT_EQ(release(tag, probed), probed);
            EXPECT_EQ(ZR_memm_disassociate(tag, probed), probed);
            EXPECT_EQ(reallocate(tag, probed, 10), nullptr);
        }
        expect_same_steps();
    }

    void release_tag(uint64_t tag)
    {
        EXPECT_EQ(ZR_memm_free_all(tag), model.release_tag(tag));
        expect_same_steps();
    }

    void release_everything()
    {
        EXPECT_EQ(ZR_memm_cleanup(), model.release_everything());
        expect_same_steps();
    }

    // Phases of growth and of decline in turn, so that tags need several nodes and lose them again.
    void take_random_step(int step)
    {
        const size_t allocations = step / 1000 % 2 == 0 ? 450 : 250;
        const size_t choice = random_below(1000);
        if (choice < 1)
            release_everything();
        else if (choice < 6)
            release_tag(random_tag());
        else if (choice < 30)
            allocate_one(random_tag(), true);
        else if (choice < 80)
            associate_one(random_tag());
        else if (choice < 80 + allocations)
            allocate_one(random_tag(), false);
        else if (model.blocks.empty())
            return;
        else if (choice < 750)
            remove_one(random_block(), choice % 4 != 0);
        else if (choice < 900)
            reallocate_one(random_block());
        else
            probe(random_block(), random_tag());
    }

    std::mt19937 random{17};
    memory_model model;
};

}  // namespace

TEST_F(MemoryManagerModel, RandomOperationsAgreeWithTheModel)
{
    for (int step = 0; step < 20000 && !HasFailure(); ++step) {
        SCOPED_TRACE(words("step ", step));
        take_random_step(step);
        EXPECT_EQ(violations_in(*table), std::vector<std::string>{});
    }
    release_everything();
}
