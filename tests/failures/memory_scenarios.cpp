// Failures of the memory manager.

#include "failures/scenario.h"
#include "memory/dt_types_memory_fixture.h"

namespace {

constexpr size_t RECORD = sizeof(ZT_MEMM_TAG_RECORD);
constexpr size_t NODE = sizeof(ZT_MEMM_NODE);
static_assert(RECORD == 360 && NODE == 336);

std::vector<LPVOID> others;  // blocks that the call is not about
LPVOID old_block;
LPVOID answer;

void hold(uint64_t tag, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        others.push_back(allocate(tag));
}

void empty_table()
{
    others.clear();
    old_block = answer = nullptr;
}

void bucket_is_taken()
{
    empty_table();
    hold(SECOND_TAG, 1);
}

void tag_has_13_blocks()
{
    empty_table();
    hold(TAG, 13);
}

bool is_recorded(uint64_t tag, LPVOID block)
{
    return ZR_memm_flags(tag, block) == ZR_MEMM_FLAG_RECORDED;
}

size_t recorded_others()
{
    return static_cast<size_t>(std::count_if(others.begin(), others.end(), [](LPVOID block) {
        return is_recorded(TAG, block) || is_recorded(SECOND_TAG, block);
    }));
}

std::string state_of(LPVOID block)
{
    if (block == nullptr)
        return "null";
    return is_recorded(TAG, block) ? "a recorded block" : "an unrecorded block";
}

// Nothing else is recorded or lost, and one block more than a node holds can be had and given back.
void use_manager()
{
    EXPECT_EQ(recorded_others(), others.size()) << "other blocks have lost their record";
    std::vector<LPVOID> blocks;
    for (int i = 0; i < 14; ++i) {
        blocks.push_back(allocate(TAG));
        EXPECT_TRUE(is_recorded(TAG, blocks.back()));
    }
    for (LPVOID block : blocks)
        EXPECT_EQ(release(TAG, block), nullptr);
}

void release_everything()
{
    ZR_memm_cleanup();
}

scenarios allocations()
{
    const auto act = [] {
        answer = allocate(TAG, 10);
    };
    const auto result = [] {
        return state_of(answer);
    };
    return {
        {.name = "ZR_memm_alloc, first block of a vacant bucket",
         .prepare = empty_table,
         .act = act,
         .result = result,
         .outcomes = {{"nothing", "a recorded block", 10}, {"allocation 1", "null"}}},
        {.name = "ZR_memm_alloc, first block of a second tag in a bucket",
         .prepare = bucket_is_taken,
         .act = act,
         .result = result,
         .outcomes = {{"nothing", "a recorded block", 10 + RECORD}, {"allocation *", "null"}}},
        {.name = "ZR_memm_alloc, 14th block of a tag",
         .prepare = tag_has_13_blocks,
         .act = act,
         .result = result,
         .outcomes = {{"nothing", "a recorded block", 10 + NODE}, {"allocation *", "null"}}},
    };
}

// The block stays the caller's when it cannot be recorded.
scenarios associations()
{
    const auto with_outside_block = [](void (*prepare)()) {
        return [prepare] {
            prepare();
            old_block = malloc(10);
        };
    };
    const auto act = [] {
        answer = ZR_memm_associate(TAG, old_block, 10);
    };
    const auto result = [] {
        return state_of(answer) + ", given " + state_of(old_block);
    };
    const std::string recorded = "a recorded block, given a recorded block";
    const std::string kept_by_caller = "null, given an unrecorded block";
    scenarios list = {
        {.name = "ZR_memm_associate, vacant bucket",
         .prepare = with_outside_block(empty_table),
         .outcomes = {{"nothing", recorded, 0}}},
        {.name = "ZR_memm_associate, first block of a second tag in a bucket",
         .prepare = with_outside_block(bucket_is_taken),
         .outcomes = {{"nothing", recorded, RECORD}, {"allocation 1", kept_by_caller}}},
        {.name = "ZR_memm_associate, 14th block of a tag",
         .prepare = with_outside_block(tag_has_13_blocks),
         .outcomes = {{"nothing", recorded, NODE}, {"allocation 1", kept_by_caller}}},
    };
    for (scenario &each : list) {
        each.act = act;
        each.result = result;
        each.clean_up = [] {
            if (answer == nullptr)
                free(old_block);
            release_everything();
        };
    }
    return list;
}

// A refused resize loses the old block, too.
scenarios resizes()
{
    const auto act = [] {
        answer = reallocate(TAG, old_block, 20);
    };
    const auto result = [] {
        return state_of(answer) + (is_recorded(TAG, old_block) ? ", old block too" : "");
    };
    const auto take_one_of_8 = [] {
        old_block = allocate(TAG, 8);
    };
    return {
        {.name = "ZR_memm_realloc, a slot is vacant",
         .prepare =
             [=] {
                 empty_table();
                 hold(TAG, 1);
                 take_one_of_8();
             },
         .act = act,
         .result = result,
         .outcomes = {{"nothing", "a recorded block", 20 - 8}, {"allocation 1", "null", -8}}},
        {.name = "ZR_memm_realloc, the last block of a further record",
         .prepare =
             [=] {
                 bucket_is_taken();
                 take_one_of_8();
             },
         .act = act,
         .result = result,
         .outcomes = {{"nothing", "a recorded block", 20 - 8},
                      {"allocation 1", "null", -8 - static_cast<long>(RECORD)}}},
        {.name = "ZR_memm_realloc, all slots are taken",
         .prepare =
             [=] {
                 empty_table();
                 hold(TAG, 12);
                 take_one_of_8();
             },
         .act = act,
         .result = result,
         .outcomes = {{"nothing", "a recorded block", 20 - 8 + NODE}, {"allocation *", "null", -8}}},
        {.name = "ZR_memm_realloc, block not recorded",
         .prepare = empty_table,
         .act = act,
         .result = result,
         .outcomes = {{"nothing", "null", 0}}},
    };
}

// These need nothing of the platform that could fail.
scenarios releases()
{
    const auto prepare = [] {
        bucket_is_taken();
        old_block = allocate(TAG, 8);
    };
    const long released = -8 - static_cast<long>(RECORD);
    return {
        {.name = "ZR_memm_free",
         .prepare = prepare,
         .act = [] { answer = release(TAG, old_block); },
         .result = [] { return state_of(answer); },
         .outcomes = {{"nothing", "null", released}}},
        {.name = "ZR_memm_free_all",
         .prepare = prepare,
         .act = [] { ZR_memm_free_all(TAG); },
         .result = [] { return state_of(answer); },
         .outcomes = {{"nothing", "null", released}}},
    };
}

}  // namespace

scenarios memory_scenarios()
{
    scenarios all;
    for (const auto &make : {allocations, associations, resizes, releases})
        for (scenario &each : make()) {
            each.use = use_manager;
            if (!each.clean_up)
                each.clean_up = release_everything;
            all.push_back(std::move(each));
        }
    return all;
}
