// The objects of foundation.hpp beside the plain calls that they stand for: they are to cost the same.

#include "bench.h"

#include "foundation/foundation.hpp"

#include <mutex>

namespace {

constexpr uint64_t TAG = 7;
constexpr int64_t ELEMENTS = 1000;

int numbers[ELEMENTS];

// One piece of work in both forms.
void register_pair(const char *group, const char *title, const char *argument, int64_t count,
                   void (*ours)(benchmark::State &), void (*plain)(benchmark::State &))
{
    bench::describe({group, title, argument, {{"plain"}}});
    benchmark::RegisterBenchmark(bench::row(group, "ours", count).c_str(), ours);
    benchmark::RegisterBenchmark(bench::row(group, "plain", count).c_str(), plain);
}

// ---- Blocks of an owner

void own_blocks(benchmark::State &state)
{
    for (auto _ : state) {
        qv::owner owner(TAG);
        for (int i = 0; i < 10; ++i)
            benchmark::DoNotOptimize(owner.alloc(32));
    }
}

void own_blocks_plain(benchmark::State &state)
{
    for (auto _ : state) {
        for (int i = 0; i < 10; ++i)
            benchmark::DoNotOptimize(ZR_memm_alloc(TAG, 32, __FILE__, __LINE__));
        ZR_memm_free_all(TAG);
    }
}

// ---- Elements of an array

void read_elements(benchmark::State &state)
{
    const qv::owner owner(TAG);
    qv::array<int> array(owner.tag(), ELEMENTS);
    for (int &number : numbers)
        array.add(&number);
    int64_t count = 0;
    for (auto _ : state)
        for (const int *each : array) {
            benchmark::DoNotOptimize(each);
            count += each != nullptr ? 1 : 0;
        }
    if (count != ELEMENTS * state.iterations())
        state.SkipWithError("elements are missing");
}

void read_elements_plain(benchmark::State &state)
{
    ZT_DT_ANY *array = nullptr;
    ZR_array_ptr_alloc(TAG, &array, ELEMENTS, 0, nullptr);
    for (int &number : numbers)
        ZR_array_ptr_add(array, &number, nullptr);
    int64_t found = 0;
    for (auto _ : state) {
        uint64_t count = 0;
        ZR_array_ptr_count_get(array, &count);
        for (uint64_t i = 0; i < count; ++i) {
            LPVOID element = nullptr;
            ZR_array_ptr_get(array, i, &element);
            const int *each = static_cast<int *>(element);
            benchmark::DoNotOptimize(each);
            found += each != nullptr ? 1 : 0;
        }
    }
    if (found != ELEMENTS * state.iterations())
        state.SkipWithError("elements are missing");
    ZR_memm_free_all(TAG);
}

INT compare_numbers(const int *a, const int *b)
{
    return a < b ? -1 : a > b ? 1 : 0;
}

INT compare_untyped(LPVOID a, LPVOID b)
{
    return compare_numbers(static_cast<int *>(a), static_cast<int *>(b));
}

void find_elements(benchmark::State &state)
{
    const qv::owner owner(TAG);
    auto array = qv::array<int>::searchable<compare_numbers>(owner.tag(), ELEMENTS);
    for (int &number : numbers)
        array.add(&number);
    int *found = nullptr;
    for (auto _ : state)
        benchmark::DoNotOptimize(array.find(&numbers[ELEMENTS / 2], found));
    if (found != &numbers[ELEMENTS / 2])
        state.SkipWithError("not found");
}

void find_elements_plain(benchmark::State &state)
{
    ZT_DT_ANY *array = nullptr;
    ZR_array_ptr_alloc(TAG, &array, ELEMENTS, 0, compare_untyped);
    for (int &number : numbers)
        ZR_array_ptr_add(array, &number, nullptr);
    LPVOID found = nullptr;
    for (auto _ : state)
        benchmark::DoNotOptimize(ZR_array_ptr_find(array, &numbers[ELEMENTS / 2], &found));
    if (found != &numbers[ELEMENTS / 2])
        state.SkipWithError("not found");
    ZR_memm_free_all(TAG);
}

// ---- Objects for threads

void lock_section(benchmark::State &state)
{
    qv::mem_section section;
    for (auto _ : state)
        const std::lock_guard inside(section);
}

void lock_section_plain(benchmark::State &state)
{
    LPVOID section = nullptr;
    OS_mem_sync_cs_allocate(&section);
    for (auto _ : state) {
        OS_sync_cs_enter(section);
        OS_sync_cs_leave(section);
    }
    OS_mem_sync_cs_free(section);
}

void lock_identifier(benchmark::State &state)
{
    qv::identifier identifier;
    for (auto _ : state)
        const std::lock_guard inside(identifier);
}

void lock_identifier_plain(benchmark::State &state)
{
    LPVOID identifier = nullptr;
    OS_mutex_ID_allocate(&identifier);
    for (auto _ : state) {
        LPVOID handle = nullptr;
        OS_mutex_open(identifier, nullptr, &handle);
        OS_mutex_release(handle);
    }
    OS_mutex_ID_free(identifier);
}

void make_event(benchmark::State &state)
{
    for (auto _ : state) {
        qv::event event;
        event.set();
        benchmark::DoNotOptimize(event.wait());
    }
}

void make_event_plain(benchmark::State &state)
{
    for (auto _ : state) {
        LPVOID event = nullptr;
        OS_create_event(&event, 0, nullptr);
        OS_set_event(event);
        benchmark::DoNotOptimize(OS_wait_for_event(event));
        OS_close_event(event);
    }
}

[[maybe_unused]] const bool registered = [] {
    register_pair("HppOwner", "C++: allocate 10 blocks and release their tag", "blocks", 10, own_blocks,
                  own_blocks_plain);
    register_pair("HppRead", "C++: read each element of an array", "elements", ELEMENTS, read_elements,
                  read_elements_plain);
    register_pair("HppFind", "C++: find the middle element of an array", "elements", ELEMENTS, find_elements,
                  find_elements_plain);
    register_pair("HppSection", "C++: enter and leave a critical section", "sections", 1, lock_section,
                  lock_section_plain);
    register_pair("HppIdentifier", "C++: take and release a mutex identifier", "identifiers", 1,
                  lock_identifier, lock_identifier_plain);
    register_pair("HppEvent", "C++: make an event, set it, wait and close it", "events", 1, make_event,
                  make_event_plain);
    return true;
}();

}  // namespace
