// The validator of the memory manager's table sees what is forged.

#include "memory/dt_types_memory_fixture.h"

#include <utility>

namespace {

class MemoryTable : public MemoryManager {
protected:
    // What the validator says while `word` has another value.
    template <typename Word> std::vector<std::string> violations_with(Word &word, Word forged)
    {
        const Word intact = std::exchange(word, forged);
        std::vector<std::string> violations = violations_in(*table);
        word = intact;
        return violations;
    }
};

using violations = std::vector<std::string>;

}  // namespace

TEST_F(MemoryTable, HasNoViolationWhateverWasRecorded)
{
    EXPECT_EQ(violations_in(*table), violations{});
    for (const uint64_t tag : {uint64_t{0}, TAG, SECOND_TAG, THIRD_TAG})
        fill(tag, 30);
    EXPECT_EQ(violations_in(*table), violations{});
}

TEST_F(MemoryTable, ShowsAFalseCountAndAFalseSlot)
{
    fill(TAG, 2);
    ZT_MEMM_NODE &node = table->buckets[TAG].first_node;
    EXPECT_EQ(violations_with(node.count, uint64_t{1}),
              violations{"bucket 5, tag 5: not so: a node counts its occupied slots"});
    EXPECT_EQ(violations_with(node.slots[1].flags, uint64_t{0}),
              violations{"bucket 5, tag 5: not so: an occupied slot carries its flag"});
    EXPECT_EQ(violations_with(node.slots[2].size, uint64_t{8}),
              violations{"bucket 5, tag 5: not so: a vacant slot is all zero"});
}

TEST_F(MemoryTable, ShowsABrokenChain)
{
    fill(TAG, 14);
    fill(SECOND_TAG, 1);
    auto *node = static_cast<ZT_MEMM_NODE *>(heap.address_of("node 1"));
    auto *record = static_cast<ZT_MEMM_TAG_RECORD *>(heap.address_of("record 1"));
    EXPECT_EQ(
        violations_with(node->previous, node),
        violations{"bucket 5, tag 5: not so: a node links back to the one in front, the inline one to none"});
    EXPECT_EQ(
        violations_with(record->previous, record),
        violations{"bucket 5, tag 37: not so: a record links back to the one in front, the table's to none"});
}

TEST_F(MemoryTable, ShowsATagInTheWrongBucketOrTwice)
{
    fill(TAG, 1);
    fill(SECOND_TAG, 1);
    auto *record = static_cast<ZT_MEMM_TAG_RECORD *>(heap.address_of("record 1"));
    EXPECT_EQ(violations_with(record->tag, uint64_t{38}),
              violations{"bucket 5, tag 38: not so: a tag's low five bits are its bucket"});
    EXPECT_EQ(violations_with(record->tag, uint64_t{TAG}),
              violations{"bucket 5, tag 5: not so: a tag has one record"});
}
