// The synchronisation operations as tables, so that one test runs over the plain names and the variants.
#pragma once

#include "foundation/os.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <tuple>

struct sync_operations {
    const char *name;  // a part of the names of tests
    uintptr_t (*current_thread_id_get)();
    ZT_BOOL (*cs_allocate)(uint64_t tag, LPVOID *section);
    ZT_BOOL (*cs_free)(uint64_t tag, LPVOID section);
    ZT_BOOL (*mem_cs_allocate)(LPVOID *section);
    ZT_BOOL (*mem_cs_free)(LPVOID section);
    void (*cs_enter)(LPVOID section);
    void (*cs_leave)(LPVOID section);
    ZT_ERRCOUNT (*mutex_ID_allocate)(LPVOID *identifier);
    ZT_ERRCOUNT (*mutex_ID_free)(LPVOID identifier);
    ZT_BOOL (*mutex_open)(LPVOID identifier, LPVOID reserved, LPVOID *handle);
    ZT_BOOL (*mutex_release)(LPVOID handle);
    ZT_BOOL (*create_event)(LPVOID *event, UINT initial_state, LPVOID reserved);
    ZT_BOOL (*close_event)(LPVOID event);
    ZT_BOOL (*set_event)(LPVOID event);
    ZT_BOOL (*reset_event)(LPVOID event);
    ZT_BOOL (*wait_for_event)(LPVOID event);
};

inline void PrintTo(const sync_operations &operations, std::ostream *stream)
{
    *stream << operations.name;
}

#define SYNC_OPERATIONS(name, suffix)                                                                        \
    {                                                                                                        \
        name, OS_current_thread_id_get##suffix, OS_sync_cs_allocate##suffix, OS_sync_cs_free##suffix,        \
            OS_mem_sync_cs_allocate##suffix, OS_mem_sync_cs_free##suffix, OS_sync_cs_enter##suffix,          \
            OS_sync_cs_leave##suffix, OS_mutex_ID_allocate##suffix, OS_mutex_ID_free##suffix,                \
            OS_mutex_open##suffix, OS_mutex_release##suffix, OS_create_event##suffix,                        \
            OS_close_event##suffix, OS_set_event##suffix, OS_reset_event##suffix, OS_wait_for_event##suffix  \
    }

inline constexpr sync_operations DISPATCHED_OPERATIONS = SYNC_OPERATIONS("Dispatched", );
inline constexpr sync_operations THREADED_OPERATIONS = SYNC_OPERATIONS("Threaded", _th);
inline constexpr sync_operations EMULATED_OPERATIONS = SYNC_OPERATIONS("Emulated", _emu);

#undef SYNC_OPERATIONS

// Critical sections are made under this tag.
constexpr uint64_t SECTION_TAG = 0x7EAD;

// Where the state of a threaded event stands: behind its mutex and its condition.
constexpr size_t EVENT_STATE_OFFSET = 88;

// A handle before it is written.
inline LPVOID unwritten()
{
    static int nowhere;
    return &nowhere;
}

// What the three objects that are one mutex or one flag have in common, and what their calls report.
struct lock_kind {
    const char *name;  // a part of the names of tests
    INT created;
    INT not_created;
    INT freed;
    INT (*create)(const sync_operations &operations, LPVOID *lock);
    INT (*free)(const sync_operations &operations, LPVOID lock);
    void (*take)(const sync_operations &operations, LPVOID lock);
    void (*give_back)(const sync_operations &operations, LPVOID lock);
};

inline void PrintTo(const lock_kind &kind, std::ostream *stream)
{
    *stream << kind.name;
}

namespace lock_kinds {

inline void enter(const sync_operations &operations, LPVOID section)
{
    operations.cs_enter(section);
}

inline void leave(const sync_operations &operations, LPVOID section)
{
    operations.cs_leave(section);
}

inline constexpr lock_kind ORDINARY_SECTION = {
    "OrdinaryCriticalSection",
    1,
    0,
    1,
    [](const sync_operations &operations, LPVOID *lock) { return operations.cs_allocate(SECTION_TAG, lock); },
    [](const sync_operations &operations, LPVOID lock) { return operations.cs_free(SECTION_TAG, lock); },
    enter,
    leave};

inline constexpr lock_kind MEM_SYNC_SECTION = {
    "MemSyncCriticalSection",
    1,
    0,
    1,
    [](const sync_operations &operations, LPVOID *lock) { return operations.mem_cs_allocate(lock); },
    [](const sync_operations &operations, LPVOID lock) { return operations.mem_cs_free(lock); },
    enter,
    leave};

inline constexpr lock_kind MUTEX_IDENTIFIER = {
    "MutexIdentifier",
    0,
    -4820,
    0,
    [](const sync_operations &operations, LPVOID *lock) { return operations.mutex_ID_allocate(lock); },
    [](const sync_operations &operations, LPVOID lock) { return operations.mutex_ID_free(lock); },
    [](const sync_operations &operations, LPVOID lock) {
        LPVOID handle = nullptr;
        operations.mutex_open(lock, nullptr, &handle);
    },
    [](const sync_operations &operations, LPVOID lock) {
        operations.mutex_release(lock);
    }};

}  // namespace lock_kinds

// Names of tests that run over these tables.
inline std::string operations_name(const testing::TestParamInfo<sync_operations> &tested)
{
    return tested.param.name;
}

using operations_and_kind = std::tuple<sync_operations, lock_kind>;

inline std::string operations_and_kind_name(const testing::TestParamInfo<operations_and_kind> &tested)
{
    return std::string(std::get<0>(tested.param).name) + std::get<1>(tested.param).name;
}

inline const auto every_lock_kind =
    testing::Values(lock_kinds::ORDINARY_SECTION, lock_kinds::MEM_SYNC_SECTION, lock_kinds::MUTEX_IDENTIFIER);
