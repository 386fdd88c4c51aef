// Critical sections beside a recursive mutex of the platform, in a process with one thread and, as the second
// program that is made of this file, in one with two: the platform locks differently then.

#include "bench.h"

#include "foundation/memory.h"
#include "foundation/os.h"

#include <pthread.h>
#include <stdlib.h>

namespace {

#ifdef QV_BENCH_WITH_THREADS
constexpr int64_t THREADS = 2;

// Lives as long as the process, asleep.
void *sleep_for_ever(void *)
{
    pthread_mutex_t never = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&never);
    pthread_mutex_lock(&never);
    return nullptr;
}

pthread_t second_thread;
const bool has_second_thread = pthread_create(&second_thread, nullptr, sleep_for_ever, nullptr) == 0;
#else
constexpr int64_t THREADS = 1;
#endif

constexpr uint64_t TAG = 7;

void make_recursive(pthread_mutex_t *mutex)
{
    pthread_mutexattr_t attribute;
    pthread_mutexattr_init(&attribute);
    pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(mutex, &attribute);
    pthread_mutexattr_destroy(&attribute);
}

void EnterAndLeave(benchmark::State &state)
{
    LPVOID section = nullptr;
    if (OS_sync_cs_allocate(TAG, &section) == 0)
        state.SkipWithError("no critical section");
    for (auto _ : state) {
        OS_sync_cs_enter(section);
        OS_sync_cs_leave(section);
    }
    OS_sync_cs_free(TAG, section);
}

void LockAndUnlock(benchmark::State &state)
{
    pthread_mutex_t mutex;
    make_recursive(&mutex);
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
    }
    pthread_mutex_destroy(&mutex);
}

const bool enter_described = bench::describe(
    {"EnterAndLeave", "Enter and leave a critical section", "threads in the process", {{"pthread"}}});
BENCHMARK(EnterAndLeave)->Name("EnterAndLeave/ours")->Arg(THREADS);
BENCHMARK(LockAndUnlock)->Name("EnterAndLeave/pthread")->Arg(THREADS);

void AllocateAndFree(benchmark::State &state)
{
    for (auto _ : state) {
        LPVOID section = nullptr;
        OS_sync_cs_allocate(TAG, &section);
        benchmark::DoNotOptimize(section);
        OS_sync_cs_free(TAG, section);
    }
}

void AllocateAndFreeMutex(benchmark::State &state)
{
    for (auto _ : state) {
        auto *mutex = static_cast<pthread_mutex_t *>(malloc(sizeof(pthread_mutex_t)));
        make_recursive(mutex);
        benchmark::DoNotOptimize(mutex);
        pthread_mutex_destroy(mutex);
        free(mutex);
    }
}

const bool allocate_described = bench::describe(
    {"AllocateSection", "Allocate and free a critical section", "threads in the process", {{"pthread"}}});
BENCHMARK(AllocateAndFree)->Name("AllocateSection/ours")->Arg(THREADS);
BENCHMARK(AllocateAndFreeMutex)->Name("AllocateSection/pthread")->Arg(THREADS);

}  // namespace
