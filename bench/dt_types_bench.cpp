// The memory manager beside malloc with a growing vector, talloc and the pools of APR.

#include "bench.h"

#include "foundation/memory.h"

#include <apr_general.h>
#include <apr_pools.h>
#include <malloc.h>
#include <stdlib.h>
#include <talloc.h>

#include <random>
#include <vector>

namespace {

constexpr uint64_t BLOCK_BYTES = 48;
constexpr CHAR HERE[] = "bench";

// ---- What records blocks under an owner

struct tagged_manager {
    uint64_t tag = ZR_memm_unique_tag_get(HERE, __LINE__);

    LPVOID allocate() const { return ZR_memm_alloc(tag, BLOCK_BYTES, HERE, __LINE__); }
    void release(LPVOID block) const { ZR_memm_free(tag, block, HERE, __LINE__); }
    void release_all() const { ZR_memm_free_all(tag); }
};

// The least that one does by hand. It cannot release a single block.
struct growing_vector {
    std::vector<LPVOID> blocks;

    LPVOID allocate()
    {
        blocks.push_back(malloc(BLOCK_BYTES));
        return blocks.back();
    }
    void release_all()
    {
        for (LPVOID block : blocks)
            free(block);
        blocks = {};
    }
};

struct talloc_context {
    void *context = talloc_new(nullptr);

    LPVOID allocate() const { return talloc_size(context, BLOCK_BYTES); }
    void release(LPVOID block) const { talloc_free(block); }
    void release_all() const { talloc_free(context); }
};

struct apr_pool {
    apr_pool_t *pool = nullptr;

    apr_pool()
    {
        [[maybe_unused]] static const apr_status_t is_initialised = apr_initialize();
        apr_pool_create(&pool, nullptr);
    }
    LPVOID allocate() const { return apr_palloc(pool, BLOCK_BYTES); }
    void release_all() const { apr_pool_destroy(pool); }
};

// What the manager cannot do without: its heap calls in their order, and to note in its records where blocks
// are. Nothing is searched for.
constexpr size_t NODE_SLOTS = 13;
constexpr size_t NODE_BYTES = 336;
constexpr size_t RECORD_BYTES = 360;

// Of few blocks, which fit its record's own node. The records of the first 32 owners lie in a table.
struct record_alone {
    static constexpr size_t IN_TABLE = 32;
    static inline LPVOID table[IN_TABLE][RECORD_BYTES / sizeof(LPVOID)];
    static inline size_t owners = 0;

    LPVOID *record = owners < IN_TABLE ? table[owners] : nullptr;
    const bool is_on_heap = owners++ >= IN_TABLE;
    size_t count = 0;

    LPVOID allocate()
    {
        LPVOID block = malloc(BLOCK_BYTES);
        if (record == nullptr)
            record = static_cast<LPVOID *>(calloc(1, RECORD_BYTES));
        record[count++] = block;
        return block;
    }
    void release_all()
    {
        for (size_t i = 0; i < count; ++i)
            free(record[i]);
        if (is_on_heap)
            free(record);
        --owners;
    }
};

// Of many blocks, all of which the caller releases.
struct nodes_alone {
    std::vector<LPVOID> nodes;
    size_t count = 0;

    LPVOID allocate()
    {
        LPVOID block = malloc(BLOCK_BYTES);
        if (++count > NODE_SLOTS * (nodes.size() + 1))
            nodes.push_back(calloc(1, NODE_BYTES));
        return block;
    }
    void release(LPVOID block)
    {
        free(block);
        --count;
    }
    void release_all()
    {
        for (LPVOID node : nodes)
            free(node);
    }
};

constexpr char HEAP_CALLS_ALONE[] = "the same heap calls without any search";

// A heap whose free blocks are merged, whatever ran before: releasing a large block does that. It keeps its
// memory, for the kernel's page faults are not what is compared here.
void tidy_heap()
{
    constexpr int KEPT_BYTES = 1 << 30;
    constexpr size_t LARGE_BYTES = 1 << 20;
    mallopt(M_TRIM_THRESHOLD, KEPT_BYTES);
    mallopt(M_MMAP_THRESHOLD, KEPT_BYTES);
    free(malloc(LARGE_BYTES));
}

// The order in which one round's blocks were released decides how fast the heap hands them out in the next.
// Long rounds therefore all start from a tidy heap, off the clock; for short ones it makes no difference.
void start_round(benchmark::State &state)
{
    if (state.range(0) < 10000)
        return;
    state.PauseTiming();
    tidy_heap();
    state.ResumeTiming();
}

// ---- Owners

template <typename Owner> void FillAndReleaseOneOwner(benchmark::State &state)
{
    tidy_heap();
    for (auto _ : state) {
        start_round(state);
        Owner owner;
        for (int64_t i = 0; i < state.range(0); ++i)
            benchmark::DoNotOptimize(owner.allocate());
        owner.release_all();
    }
}

// Where blocks and nodes are is written into vectors made beforehand.
void FillAndReleaseWithoutSearch(benchmark::State &state)
{
    tidy_heap();
    const size_t count = static_cast<size_t>(state.range(0));
    std::vector<LPVOID> blocks(count);
    std::vector<LPVOID> nodes((count - 1) / NODE_SLOTS);
    for (auto _ : state) {
        start_round(state);
        for (size_t i = 0; i < count; ++i) {
            blocks[i] = malloc(BLOCK_BYTES);
            if (i >= NODE_SLOTS && i % NODE_SLOTS == 0)
                nodes[i / NODE_SLOTS - 1] = calloc(1, NODE_BYTES);
        }
        for (size_t i = 0; i < NODE_SLOTS && i < count; ++i)
            free(blocks[i]);
        for (size_t node = nodes.size(); node != 0; --node) {
            for (size_t i = node * NODE_SLOTS; i < (node + 1) * NODE_SLOTS && i < count; ++i)
                free(blocks[i]);
            free(nodes[node - 1]);
        }
    }
}

const bool owners_described = bench::describe({"Owners",
                                               "One owner: fill it and release it whole",
                                               "blocks",
                                               {{"malloc"},
                                                {"talloc", "keeps a header before each block"},
                                                {"apr", "a pool: no block is released alone"}},
                                               HEAP_CALLS_ALONE,
                                               true});
BENCHMARK(FillAndReleaseOneOwner<tagged_manager>)
    ->Name("Owners/ours")
    ->RangeMultiplier(10)
    ->Range(10, 100000);
BENCHMARK(FillAndReleaseOneOwner<growing_vector>)
    ->Name("Owners/malloc")
    ->RangeMultiplier(10)
    ->Range(10, 100000);
BENCHMARK(FillAndReleaseOneOwner<talloc_context>)
    ->Name("Owners/talloc")
    ->RangeMultiplier(10)
    ->Range(10, 100000);
BENCHMARK(FillAndReleaseOneOwner<apr_pool>)->Name("Owners/apr")->RangeMultiplier(10)->Range(10, 100000);
BENCHMARK(FillAndReleaseWithoutSearch)->Name("Owners/floor")->RangeMultiplier(10)->Range(10, 100000);

constexpr int64_t OWNER_BLOCKS = 10;

// Made beforehand: a large request in each round would make the heap merge what was released in the last one.
template <typename Owner> std::vector<Owner> room_for_owners(const benchmark::State &state)
{
    std::vector<Owner> owners;
    owners.reserve(state.range(0));
    return owners;
}

template <typename Owner> void FillOwnersInTurn(benchmark::State &state)
{
    std::vector<Owner> owners = room_for_owners<Owner>(state);
    tidy_heap();
    for (auto _ : state) {
        start_round(state);
        owners.clear();
        owners.resize(state.range(0));
        for (Owner &owner : owners)
            for (int64_t i = 0; i < OWNER_BLOCKS; ++i)
                benchmark::DoNotOptimize(owner.allocate());
        for (Owner &owner : owners)
            owner.release_all();
    }
}

const bool OwnersInTurn_described =
    bench::describe({"OwnersInTurn",
                     "Many owners of ten blocks, filled one after the other",
                     "owners",
                     {{"malloc"}, {"talloc", "keeps a header before each block"}},
                     HEAP_CALLS_ALONE,
                     true});
BENCHMARK(FillOwnersInTurn<tagged_manager>)->Name("OwnersInTurn/ours")->Arg(100)->Arg(10000);
BENCHMARK(FillOwnersInTurn<growing_vector>)->Name("OwnersInTurn/malloc")->Arg(100)->Arg(10000);
BENCHMARK(FillOwnersInTurn<talloc_context>)->Name("OwnersInTurn/talloc")->Arg(100)->Arg(10000);
BENCHMARK(FillOwnersInTurn<record_alone>)->Name("OwnersInTurn/floor")->Arg(100)->Arg(10000);

template <typename Owner> void FillOwnersRoundRobin(benchmark::State &state)
{
    std::vector<Owner> owners = room_for_owners<Owner>(state);
    tidy_heap();
    for (auto _ : state) {
        start_round(state);
        owners.clear();
        owners.resize(state.range(0));
        for (int64_t i = 0; i < OWNER_BLOCKS; ++i)
            for (Owner &owner : owners)
                benchmark::DoNotOptimize(owner.allocate());
        for (Owner &owner : owners)
            owner.release_all();
    }
}

const bool OwnersRoundRobin_described =
    bench::describe({"OwnersRoundRobin",
                     "Many owners of ten blocks, filled a block at a time in turn",
                     "owners",
                     {{"malloc"}, {"talloc", "keeps a header before each block"}},
                     HEAP_CALLS_ALONE,
                     true});
BENCHMARK(FillOwnersRoundRobin<tagged_manager>)->Name("OwnersRoundRobin/ours")->Arg(100)->Arg(10000);
BENCHMARK(FillOwnersRoundRobin<growing_vector>)->Name("OwnersRoundRobin/malloc")->Arg(100)->Arg(10000);
BENCHMARK(FillOwnersRoundRobin<talloc_context>)->Name("OwnersRoundRobin/talloc")->Arg(100)->Arg(10000);
BENCHMARK(FillOwnersRoundRobin<record_alone>)->Name("OwnersRoundRobin/floor")->Arg(100)->Arg(10000);

// What the host does at its end. Filling is on the clock, as it is for the peer.
void CleanUpManager(benchmark::State &state)
{
    tidy_heap();
    for (auto _ : state) {
        for (int64_t owner = 0; owner < state.range(0); ++owner) {
            const tagged_manager tagged;
            for (int64_t i = 0; i < OWNER_BLOCKS; ++i)
                benchmark::DoNotOptimize(tagged.allocate());
        }
        ZR_memm_cleanup();
    }
}

const bool cleanup_described = bench::describe({"Cleanup",
                                                "Owners of ten blocks, all released at the host's end",
                                                "owners",
                                                {{"malloc"}},
                                                nullptr,
                                                true});
BENCHMARK(CleanUpManager)->Name("Cleanup/ours")->Arg(100);
BENCHMARK(FillOwnersInTurn<growing_vector>)->Name("Cleanup/malloc")->Arg(100);

// ---- Single blocks

template <typename Owner, bool OLDEST_FIRST> void ReleaseOneByOne(benchmark::State &state)
{
    tidy_heap();
    std::vector<LPVOID> blocks(state.range(0));
    for (auto _ : state) {
        start_round(state);
        Owner owner;
        for (LPVOID &block : blocks)
            block = owner.allocate();
        const size_t last = blocks.size() - 1;
        for (size_t i = 0; i <= last; ++i)
            owner.release(blocks[OLDEST_FIRST ? i : last - i]);
        owner.release_all();
    }
}

const bool OldestFirst_described = bench::describe({"OldestFirst",
                                                    "Fill an owner, release its blocks singly, oldest first",
                                                    "blocks",
                                                    {{"talloc"}},
                                                    nullptr,
                                                    true});
BENCHMARK(ReleaseOneByOne<tagged_manager, true>)
    ->Name("OldestFirst/ours")
    ->RangeMultiplier(10)
    ->Range(100, 10000);
BENCHMARK(ReleaseOneByOne<talloc_context, true>)
    ->Name("OldestFirst/talloc")
    ->RangeMultiplier(10)
    ->Range(100, 10000);
const bool NewestFirst_described = bench::describe({"NewestFirst",
                                                    "Fill an owner, release its blocks singly, newest first",
                                                    "blocks",
                                                    {{"talloc"}},
                                                    nullptr,
                                                    true});
BENCHMARK(ReleaseOneByOne<tagged_manager, false>)
    ->Name("NewestFirst/ours")
    ->RangeMultiplier(10)
    ->Range(100, 10000);
BENCHMARK(ReleaseOneByOne<talloc_context, false>)
    ->Name("NewestFirst/talloc")
    ->RangeMultiplier(10)
    ->Range(100, 10000);

// One random block of many is released and another one allocated in its place.
template <typename Owner> void Churn(benchmark::State &state)
{
    tidy_heap();
    Owner owner;
    std::vector<LPVOID> blocks(state.range(0));
    for (LPVOID &block : blocks)
        block = owner.allocate();
    std::minstd_rand random;
    for (auto _ : state) {
        LPVOID &block = blocks[random() % blocks.size()];
        owner.release(block);
        block = owner.allocate();
    }
    for (LPVOID block : blocks)
        owner.release(block);
    owner.release_all();
}

const bool Churn_described = bench::describe({"Churn",
                                              "Release a random block of many and allocate another",
                                              "live blocks",
                                              {{"talloc"}},
                                              HEAP_CALLS_ALONE});
BENCHMARK(Churn<tagged_manager>)->Name("Churn/ours")->RangeMultiplier(10)->Range(100, 100000);
BENCHMARK(Churn<talloc_context>)->Name("Churn/talloc")->RangeMultiplier(10)->Range(100, 100000);
BENCHMARK(Churn<nodes_alone>)->Name("Churn/floor")->RangeMultiplier(10)->Range(100, 100000);

// The same ten blocks at a time, so that vacancies lie scattered.
template <typename Owner> void ChurnInTens(benchmark::State &state)
{
    tidy_heap();
    Owner owner;
    std::vector<LPVOID> blocks(state.range(0));
    for (LPVOID &block : blocks)
        block = owner.allocate();
    std::minstd_rand random;
    size_t chosen[10];
    for (auto _ : state) {
        for (size_t &index : chosen) {
            do
                index = random() % blocks.size();
            while (blocks[index] == nullptr);
            owner.release(blocks[index]);
            blocks[index] = nullptr;
        }
        for (const size_t index : chosen)
            blocks[index] = owner.allocate();
    }
    for (LPVOID block : blocks)
        owner.release(block);
    owner.release_all();
}

const bool ChurnInTens_described =
    bench::describe({"ChurnInTens",
                     "Release ten random blocks of many and allocate ten others",
                     "live blocks",
                     {{"talloc"}},
                     HEAP_CALLS_ALONE});
BENCHMARK(ChurnInTens<tagged_manager>)->Name("ChurnInTens/ours")->RangeMultiplier(10)->Range(100, 100000);
BENCHMARK(ChurnInTens<talloc_context>)->Name("ChurnInTens/talloc")->RangeMultiplier(10)->Range(100, 100000);
BENCHMARK(ChurnInTens<nodes_alone>)->Name("ChurnInTens/floor")->RangeMultiplier(10)->Range(100, 100000);

// ---- Asking for flags

class manager_flags : public tagged_manager {
public:
    uint64_t of(LPVOID block) const { return ZR_memm_flags(tag, block); }
};

// Linear probing at a load of a quarter; a vacant place is null.
class open_hash {
public:
    LPVOID allocate()
    {
        LPVOID block = malloc(BLOCK_BYTES);
        size_t i = start(block);
        while (places[i] != nullptr)
            i = (i + 1) % PLACES;
        places[i] = block;
        return block;
    }
    uint64_t of(LPVOID block) const
    {
        for (size_t i = start(block); places[i] != nullptr; i = (i + 1) % PLACES)
            if (places[i] == block)
                return ZR_MEMM_FLAG_RECORDED;
        return 0;
    }
    void release_all()
    {
        for (LPVOID block : places)
            free(block);
    }

private:
    static constexpr size_t PLACES = 4096;
    static size_t start(LPVOID block)
    {
        return reinterpret_cast<uintptr_t>(block) * UINT64_C(0x9E3779B97F4A7C15) >> 52;
    }
    std::vector<LPVOID> places = std::vector<LPVOID>(PLACES);
};

template <typename Owner> void AskForFlags(benchmark::State &state)
{
    tidy_heap();
    Owner owner;
    std::vector<LPVOID> blocks(state.range(0));
    for (LPVOID &block : blocks)
        block = owner.allocate();
    std::minstd_rand random;
    for (auto _ : state)
        benchmark::DoNotOptimize(owner.of(blocks[random() % blocks.size()]));
    owner.release_all();
}

const bool flags_described =
    bench::describe({"Flags", "Ask for the flags of a random block of many", "blocks", {{"open-hash"}}});
BENCHMARK(AskForFlags<manager_flags>)->Name("Flags/ours")->Arg(1000);
BENCHMARK(AskForFlags<open_hash>)->Name("Flags/open-hash")->Arg(1000);

}  // namespace
