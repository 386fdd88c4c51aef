// The pointer array beside the same contract written by hand, and the arrays of GLib and APR.

#include "bench.h"
#include "by_hand_array.h"

#include "foundation/array.h"
#include "foundation/memory.h"

#include <apr_general.h>
#include <apr_tables.h>
#include <glib.h>
#include <stdlib.h>

namespace {

constexpr uint64_t TAG = 7;

LPVOID number(int64_t value)
{
    return reinterpret_cast<LPVOID>(value);
}

ZT_DT_ANY *filled_array(int64_t count, uint64_t increment)
{
    ZT_DT_ANY *array = nullptr;
    ZR_array_ptr_alloc(TAG, &array, increment, 0, ZR_compare_pointers);
    for (int64_t i = 0; i < count; ++i)
        ZR_array_ptr_add(array, number(i), nullptr);
    return array;
}

plain_array make_plain_array(int64_t count, uint64_t increment)
{
    plain_array array = {sizeof(plain_array), PLAIN_ARRAY_MAGIC, 0, 0, increment, nullptr,
                         ZR_compare_pointers};
    for (int64_t i = 0; i < count; ++i)
        plain_add(&array, number(i), nullptr);
    return array;
}

void GetElement(benchmark::State &state)
{
    ZT_DT_ANY *array = filled_array(state.range(0), state.range(0));
    LPVOID element = nullptr;
    for (auto _ : state) {
        for (int64_t i = 0; i < state.range(0); ++i) {
            ZR_array_ptr_get(array, i, &element);
            benchmark::DoNotOptimize(element);
        }
    }
    ZR_memm_free_all(TAG);
}

void GetElementPlain(benchmark::State &state)
{
    plain_array array = make_plain_array(state.range(0), state.range(0));
    LPVOID element = nullptr;
    for (auto _ : state) {
        for (int64_t i = 0; i < state.range(0); ++i) {
            plain_get(&array, i, &element);
            benchmark::DoNotOptimize(element);
        }
    }
    free(array.slots);
}

const bool get_described =
    bench::describe({"ArrayGet", "Get each element", "elements", {{"by-hand"}}, nullptr, true});
BENCHMARK(GetElement)->Name("ArrayGet/ours")->Arg(1000);
BENCHMARK(GetElementPlain)->Name("ArrayGet/by-hand")->Arg(1000);

// Appends into room that is there: the array grows once, by all that is going to be added.
void Append(benchmark::State &state)
{
    for (auto _ : state) {
        ZT_DT_ANY *array = nullptr;
        ZR_array_ptr_alloc(TAG, &array, state.range(0), 0, nullptr);
        for (int64_t i = 0; i < state.range(0); ++i)
            ZR_array_ptr_add(array, number(i), nullptr);
        ZR_array_ptr_delete(array);
    }
}

void AppendPlain(benchmark::State &state)
{
    for (auto _ : state) {
        plain_array array = make_plain_array(state.range(0), state.range(0));
        benchmark::DoNotOptimize(array.slots);
        free(array.slots);
    }
}

void AppendGlib(benchmark::State &state)
{
    for (auto _ : state) {
        GPtrArray *array = g_ptr_array_sized_new(static_cast<guint>(state.range(0)));
        for (int64_t i = 0; i < state.range(0); ++i)
            g_ptr_array_add(array, number(i));
        g_ptr_array_free(array, TRUE);
    }
}

void AppendApr(benchmark::State &state)
{
    apr_initialize();
    apr_pool_t *pool = nullptr;
    apr_pool_create(&pool, nullptr);
    for (auto _ : state) {
        apr_array_header_t *array = apr_array_make(pool, static_cast<int>(state.range(0)), sizeof(LPVOID));
        for (int64_t i = 0; i < state.range(0); ++i)
            *static_cast<LPVOID *>(apr_array_push(array)) = number(i);
        apr_pool_clear(pool);
    }
    apr_pool_destroy(pool);
}

const bool append_described = bench::describe(
    {"ArrayAppend",
     "Append to an array that grows once",
     "elements",
     {{"by-hand"}, {"glib", "no check of the handle, no status"}, {"apr", "likewise, and in a pool"}},
     nullptr,
     true});
BENCHMARK(Append)->Name("ArrayAppend/ours")->RangeMultiplier(10)->Range(100, 10000);
BENCHMARK(AppendPlain)->Name("ArrayAppend/by-hand")->RangeMultiplier(10)->Range(100, 10000);
BENCHMARK(AppendGlib)->Name("ArrayAppend/glib")->RangeMultiplier(10)->Range(100, 10000);
BENCHMARK(AppendApr)->Name("ArrayAppend/apr")->RangeMultiplier(10)->Range(100, 10000);

void FindLast(benchmark::State &state)
{
    ZT_DT_ANY *array = filled_array(state.range(0), state.range(0));
    LPVOID element = nullptr;
    for (auto _ : state)
        benchmark::DoNotOptimize(ZR_array_ptr_find(array, number(state.range(0) - 1), &element));
    ZR_memm_free_all(TAG);
}

void FindLastPlain(benchmark::State &state)
{
    plain_array array = make_plain_array(state.range(0), state.range(0));
    LPVOID element = nullptr;
    for (auto _ : state)
        benchmark::DoNotOptimize(plain_find(&array, number(state.range(0) - 1), &element));
    free(array.slots);
}

const bool find_described = bench::describe(
    {"ArrayFind", "Find the last element, unsorted", "elements", {{"by-hand"}}, nullptr, true});
BENCHMARK(FindLast)->Name("ArrayFind/ours")->RangeMultiplier(10)->Range(100, 10000);
BENCHMARK(FindLastPlain)->Name("ArrayFind/by-hand")->RangeMultiplier(10)->Range(100, 10000);

// The first element goes, a new one comes at the end.
void RemoveFirst(benchmark::State &state)
{
    ZT_DT_ANY *array = filled_array(state.range(0), 2 * state.range(0));
    uint64_t removed = 0;
    for (auto _ : state) {
        ZR_array_ptr_remove_ex(array, 0, &removed, 1);
        ZR_array_ptr_add(array, number(1), nullptr);
    }
    ZR_memm_free_all(TAG);
}

void RemoveFirstPlain(benchmark::State &state)
{
    plain_array array = make_plain_array(state.range(0), 2 * state.range(0));
    uint64_t removed = 0;
    for (auto _ : state) {
        plain_remove(&array, 0, &removed);
        plain_add(&array, number(1), nullptr);
    }
    free(array.slots);
}

const bool remove_described = bench::describe(
    {"ArrayRemove", "Remove the first element and append one, in order", "elements", {{"by-hand"}}});
BENCHMARK(RemoveFirst)->Name("ArrayRemove/ours")->RangeMultiplier(10)->Range(100, 10000);
BENCHMARK(RemoveFirstPlain)->Name("ArrayRemove/by-hand")->RangeMultiplier(10)->Range(100, 10000);

}  // namespace
