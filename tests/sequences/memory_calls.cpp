// The memory manager against its model: every result, every word of the table, the heap calls, the content of
// every block.

#include "foundation/memory.h"

#include "memory/memory_model.h"
#include "memory/memory_table.h"
#include "sequences/sequence.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iterator>
#include <map>

namespace {

// Several of some buckets, the highest and the lowest bits, unique ones.
constexpr uint64_t TAGS[] = {5,  37, 69,         101,        UINT64_C(0xF000000000000005),
                             32, 64, 0x10000000, 0x10000020, 31};

class memory_subject : public subject {
public:
    memory_subject()
    {
        heap.start_over();
        table = &memory_table(heap);
    }

    ~memory_subject() override
    {
        heap.allow_allocations();
        ZR_memm_cleanup();
    }

    void perform(const operation &next) override
    {
        const uint64_t tag = TAGS[next.variant % std::size(TAGS)];
        const size_t size = next.amount % 200;
        const unsigned choice = next.what % 32;
        if (choice < 12)
            allocate(tag, size, next.refusal);
        else if (choice < 14)
            associate(tag, size, next.refusal);
        else if (choice < 15)
            reallocate_null(tag, size, next.refusal);
        else if (choice < 16)
            call_with_nothing(tag, next.amount);
        else if (choice < 17)
            release_much(tag, next.refusal);
        else if (!model.blocks.empty())
            use_block(choice, std::next(model.blocks.begin(), next.which % model.blocks.size())->first, tag,
                      size, next.refusal);
        expect_agreement();
    }

    void finish() override
    {
        tell("ZR_memm_cleanup()");
        const LONG released = ZR_memm_cleanup();
        expect_equal("the count of released blocks", released, model.release_everything());
        expect_agreement();
        expect_equal("what is left on the heap", heap.unreleased(), steps{});
        expect_equal("the count at a second cleanup", ZR_memm_cleanup(), 0);
    }

private:
    void use_block(unsigned choice, unsigned number, uint64_t tag, size_t size, uint8_t refusal)
    {
        if (choice < 23)
            remove(number, true);
        else if (choice < 25)
            remove(number, false);
        else if (choice < 30)
            reallocate(number, size, refusal);
        else
            probe(number, tag);
    }

    // ---- Allocations

    void refuse(uint8_t refusal)
    {
        if (refusal >= 24)
            return;
        tell("  allocation ", refusal % 3 + 1, " of the next call is refused");
        heap.refuse_allocation(refusal % 3u);
        model.refuse_allocation(refusal % 3u);
    }

    void allocate(uint64_t tag, size_t size, uint8_t refusal)
    {
        refuse(refusal);
        tell("ZR_memm_alloc(", tag, ", ", size, ")");
        LPVOID made = ZR_memm_alloc(tag, size, "test", __LINE__);
        take_over(made, model.allocate(tag, size));
    }

    void reallocate_null(uint64_t tag, size_t size, uint8_t refusal)
    {
        refuse(refusal);
        tell("ZR_memm_realloc(", tag, ", null, ", size, ")");
        LPVOID made = ZR_memm_realloc(tag, nullptr, size, "test", __LINE__);
        take_over(made, model.reallocate_null(tag, size));
    }

    void associate(uint64_t tag, size_t size, uint8_t refusal)
    {
        LPVOID own = malloc(size);
        const unsigned number = model.allocate_elsewhere(size);
        refuse(refusal);
        tell("ZR_memm_associate(", tag, ", malloc(", size, "), ", size, ")");
        LPVOID result = ZR_memm_associate(tag, own, size);
        if (model.associate(tag, number, size)) {
            take_over(result, number);
        } else {
            expect_equal("the block of a refused association", result, nullptr);
            expect_same_heap_calls();
            give_back(own, number);
        }
    }

    void reallocate(unsigned number, size_t size, uint8_t refusal)
    {
        const memory_model::block_facts before = model.blocks.at(number);
        refuse(refusal);
        tell("ZR_memm_realloc(", before.tag, ", block ", number, ", ", size, ")");
        LPVOID result = ZR_memm_realloc(before.tag, addresses.at(number), size, "test", __LINE__);
        addresses.erase(number);
        const unsigned moved = model.reallocate(number, size);
        if (moved != 0 && result != nullptr)
            expect(holds(result, before.filling, std::min(size, before.size)),
                   "a moved block keeps its content");
        take_over(result, moved);
    }

    void take_over(LPVOID made, unsigned number)
    {
        expect_same_heap_calls();
        if (!difference().empty())
            return;
        expect_equal("the block", made, number == 0 ? nullptr : heap.address_of(words("block ", number)));
        if (number == 0)
            return;
        addresses[number] = made;
        memory_model::block_facts &facts = model.blocks.at(number);
        facts.filling = static_cast<unsigned char>(number * 37);
        memset(made, facts.filling, facts.size);
    }

    // ---- Releases

    void remove(unsigned number, bool by_free)
    {
        const memory_model::block_facts facts = model.blocks.at(number);
        LPVOID leaving = addresses.at(number);
        addresses.erase(number);
        expect(holds(leaving, facts.filling, facts.size), "a block keeps its content until it is removed");
        tell(by_free ? "ZR_memm_free(" : "ZR_memm_disassociate(", facts.tag, ", block ", number, ")");
        if (by_free) {
            expect_equal("the result", ZR_memm_free(facts.tag, leaving, "test", __LINE__), nullptr);
            model.release(number);
        } else {
            expect_equal("the result", ZR_memm_disassociate(facts.tag, leaving), nullptr);
            model.disassociate(number);
            expect_same_heap_calls();
            give_back(leaving, number);
        }
    }

    void give_back(LPVOID own, unsigned number)
    {
        tell("free(block ", number, ")");
        free(own);
        model.release_elsewhere(number);
    }

    void release_much(uint64_t tag, uint8_t rarely)
    {
        if (rarely < 64) {
            tell("ZR_memm_free_all(", tag, ")");
            const LONG released = ZR_memm_free_all(tag);
            expect_equal("the count of released blocks", released, model.release_tag(tag));
        } else if (rarely < 80) {
            tell("ZR_memm_cleanup()");
            const LONG released = ZR_memm_cleanup();
            expect_equal("the count of released blocks", released, model.release_everything());
        }
        for (auto place = addresses.begin(); place != addresses.end();)
            place = model.blocks.count(place->first) != 0 ? std::next(place) : addresses.erase(place);
    }

    // ---- Calls that change nothing

    // Under a tag of any kind; nothing may happen unless it is the block's own.
    void probe(unsigned number, uint64_t tag)
    {
        LPVOID probed = addresses.at(number);
        const bool is_own_tag = model.blocks.at(number).tag == tag;
        tell("ZR_memm_flags(", tag, ", block ", number, ")");
        expect_equal("the flags word", ZR_memm_flags(tag, probed), is_own_tag ? 2u : 0u);
        if (is_own_tag)
            return;
        tell("ZR_memm_free, ZR_memm_disassociate, ZR_memm_realloc(", tag, ", block ", number,
             " of another tag)");
        expect_equal("the result of free", ZR_memm_free(tag, probed, "test", __LINE__), probed);
        expect_equal("the result of disassociate", ZR_memm_disassociate(tag, probed), probed);
        expect_equal("the result of realloc", ZR_memm_realloc(tag, probed, 10, "test", __LINE__), nullptr);
    }

    void call_with_nothing(uint64_t tag, uint16_t choice)
    {
        if (choice % 4 == 0) {
            tell("ZR_memm_unique_tag_get()");
            const uint64_t expected = table->unique_tag_counter | ZR_MEMM_UNIQUE_TAG_BIT;
            const uint64_t next_counter = table->unique_tag_counter + 1;
            expect_equal("the drawn tag", ZR_memm_unique_tag_get("test", __LINE__), expected);
            expect_equal("the counter", table->unique_tag_counter, next_counter);
            return;
        }
        tell("ZR_memm_free, ZR_memm_associate, ZR_memm_flags(", tag,
             ", null); ZR_memm_free_all(unknown tag)");
        expect_equal("the result of free", ZR_memm_free(tag, nullptr, "test", __LINE__), nullptr);
        expect_equal("the result of associate", ZR_memm_associate(tag, nullptr, 7), nullptr);
        expect_equal("the flags of null", ZR_memm_flags(tag, nullptr), 0u);
        expect_equal("the count of an unknown tag", ZR_memm_free_all(UNKNOWN_TAG), -1);
    }

    // ---- Agreement

    static bool holds(LPVOID block, unsigned char filling, size_t size)
    {
        const auto *bytes = static_cast<const unsigned char *>(block);
        return std::all_of(bytes, bytes + size, [=](unsigned char byte) { return byte == filling; });
    }

    void expect_same_heap_calls()
    {
        heap.allow_allocations();
        expect_equal("the list of heap calls", heap.take_single_steps(), model.take_steps());
    }

    void expect_agreement()
    {
        expect_same_heap_calls();
        const std::vector<std::string> violations = violations_in(*table);
        expect_equal("the list of violations", violations, std::vector<std::string>{});
        if (!violations.empty() || !difference().empty())
            return;
        std::map<const void *, unsigned> numbers;
        for (const auto &[number, address] : addresses)
            numbers[address] = number;
        expect_equal("the table", image_of(*table, numbers), model.image());
    }

    static constexpr uint64_t UNKNOWN_TAG = 133;  // of bucket 5
    heap_trace heap{bookkeeping_kinds()};
    const ZT_MEMM_TABLE *table = nullptr;
    memory_model model;
    std::map<unsigned, LPVOID> addresses;  // of the blocks of the model
};

}  // namespace

std::unique_ptr<subject> memory_calls()
{
    return std::make_unique<memory_subject>();
}
