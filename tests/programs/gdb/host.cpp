// A program for gdb to look at. It records blocks, makes arrays and keeps threads waiting, says in a file
// what it has done, and then stands still:  host FACTS_FILE break|wait|abort
//
// The file has a line for each fact, a name and numbers. Names of its own are the library's, too.
#include "foundation/foundation.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct event_record {
    int day;
};

struct {
    int top = 7;
} heap;  // not the library's

event_record first_day = {1};

FILE *facts;

}  // namespace

// What the commands given to gdb name.
constexpr uint64_t SMALL_TAG = 5, NEIGHBOUR_TAG = 37, EMPTIED_TAG = 42;  // the first two share a bucket
uint64_t unique_tag;
uint64_t event = 3;  // named like a subcommand
char *some_block;
ZT_DT_ANY *numbers, *emptied_array;
ZT_DATE date = {2026, 11, 21};
ZT_DATE leap_day = {2024, 2, 29};
ZT_DATE no_date = {2026, 2, 29};
ZT_DATETIME moment = {1999, 12, 31, 23, 59, 58};
BYTE guid[16] = {0x00, 0x01, 0xfe, 0x10, 0x20, 0x30, 0x40, 0x50,
                 0x60, 0x70, 0x80, 0x90, 0xa0, 0xb0, 0xc0, 0xff};
LPVOID section, free_section, identifier, unset_event, set_event, emulated_section, emulated_event;

extern "C" INT by_value(LPVOID a, LPVOID b)
{
    return (a > b) - (a < b);
}

char junk[400];  // looks like nothing of the library's

// Where gdb stops.
extern "C" __attribute__((noinline)) void everything_stands()
{
    __asm__ volatile("");
}

namespace {

[[noreturn]] void give_up(const char *what)
{
    fprintf(stderr, "%s\n", what);
    exit(1);
}

LPVOID record(uint64_t tag, uint64_t size)
{
    LPVOID block = ZR_memm_alloc(tag, size, __FILE__, __LINE__);
    if (block == nullptr)
        give_up("no memory");
    fprintf(facts, "block %lu %lu %lu\n", tag, size, reinterpret_cast<uintptr_t>(block));
    return block;
}

// A record outlives its last block when its first node emptied before the others.
void leave_record_without_blocks()
{
    LPVOID blocks[14];
    for (LPVOID &block : blocks)
        block = ZR_memm_alloc(EMPTIED_TAG, 8, __FILE__, __LINE__);
    for (LPVOID block : blocks)
        ZR_memm_free(EMPTIED_TAG, block, __FILE__, __LINE__);
}

void record_blocks()
{
    unique_tag = ZR_memm_unique_tag_get(__FILE__, __LINE__);
    some_block = static_cast<char *>(record(SMALL_TAG, 100));
    record(SMALL_TAG, 2500);
    record(SMALL_TAG, 0);
    record(NEIGHBOUR_TAG, 64);
    for (uint64_t size = 1; size <= 30; ++size)  // more than two nodes hold
        record(unique_tag, 100 * size);
    leave_record_without_blocks();
}

void make_arrays()
{
    ZR_array_ptr_alloc(unique_tag + 1, &numbers, 4, 1, by_value);
    const uintptr_t values[] = {0x30, 0x10, 0x50, 0x20, 0x40};
    for (const uintptr_t value : values)
        ZR_array_ptr_add(numbers, reinterpret_cast<LPVOID>(value), nullptr);
    ZR_array_ptr_alloc(unique_tag + 1, &emptied_array, 10, 0, nullptr);
}

struct waiting_thread {
    const char *name;
    void (*wait)();
    uintptr_t object;  // it is to wait on a word of it
    uint64_t object_bytes;
    pthread_t handle;
    int id;
};

void *run(void *argument)
{
    auto *thread = static_cast<waiting_thread *>(argument);
    pthread_setname_np(pthread_self(), thread->name);
    __atomic_store_n(&thread->id, static_cast<int>(syscall(SYS_gettid)), __ATOMIC_RELEASE);
    thread->wait();
    return nullptr;
}

void keep_section()
{
    OS_sync_cs_enter(section);
    OS_sync_cs_enter(section);
    OS_wait_for_event(unset_event);
}

void want_section()
{
    OS_sync_cs_enter(section);
}

void want_event()
{
    OS_wait_for_event(unset_event);
}

// The kernel tells the call that a thread is in, and the call's first argument.
bool is_waiting(const waiting_thread &thread)
{
    char path[64];
    snprintf(path, sizeof path, "/proc/self/task/%d/syscall", __atomic_load_n(&thread.id, __ATOMIC_ACQUIRE));
    FILE *file = fopen(path, "r");
    if (file == nullptr)
        return false;
    long call = -1;
    unsigned long word = 0;
    const int read = fscanf(file, "%ld %lx", &call, &word);
    fclose(file);
    return read == 2 && call == SYS_futex && word - thread.object < thread.object_bytes;
}

void start(const char *name, void (*wait)(), LPVOID object, uint64_t offset, uint64_t object_bytes)
{
    auto *thread =
        new waiting_thread{name, wait, reinterpret_cast<uintptr_t>(object) + offset, object_bytes, {}, 0};
    if (pthread_create(&thread->handle, nullptr, run, thread) != 0)
        give_up("no thread");
    for (int tries = 0; !is_waiting(*thread); ++tries) {
        if (tries == 20000)
            give_up("a thread does not come to wait");
        usleep(1000);
    }
    fprintf(facts, "%s %d\n", name, thread->id);
}

void make_objects()
{
    LPVOID handle;
    const bool are_made =
        OS_mem_sync_cs_allocate(&section) && OS_mem_sync_cs_allocate(&free_section) &&
        OS_create_event(&unset_event, 0, nullptr) && OS_create_event(&set_event, 7, nullptr) &&
        OS_mutex_ID_allocate(&identifier) == 0 && OS_mutex_open(identifier, nullptr, &handle) &&
        OS_mem_sync_cs_allocate_emu(&emulated_section) && OS_create_event_emu(&emulated_event, 1, nullptr);
    if (!are_made)
        give_up("no objects");
    OS_sync_cs_enter_emu(emulated_section);
    const uint64_t condition = sizeof(pthread_mutex_t), condition_bytes = sizeof(pthread_cond_t);
    start("keeper", keep_section, unset_event, condition, condition_bytes);
    start("claimer", want_section, section, 0, sizeof(pthread_mutex_t));
    start("listener", want_event, unset_event, condition, condition_bytes);
    fprintf(facts, "main %d\n", getpid());
}

}  // namespace

int main(int argc, char **argv)
{
    facts = argc == 3 ? fopen(argv[1], "w") : nullptr;
    if (facts == nullptr)
        give_up("usage: host FACTS_FILE break|wait|abort");
    record_blocks();
    make_arrays();
    make_objects();
    memset(junk, 'j', sizeof junk);
    fprintf(facts, "top %d\nday %d\n", heap.top, first_day.day);
    fclose(facts);
    everything_stands();
    if (strcmp(argv[2], "wait") == 0) {
        puts("standing");
        fflush(stdout);
        pause();
    }
    if (strcmp(argv[2], "abort") == 0) {
        rlimit limit;
        getrlimit(RLIMIT_CORE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_CORE, &limit);
        abort();
    }
    return 0;
}
