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

#define SYNC_OPERATIONS(shown_name, suffix)                                                                  \
    {                                                                                                        \
        .name = shown_name, .current_thread_id_get = OS_current_thread_id_get##suffix,                       \
        .cs_allocate = OS_sync_cs_allocate##suffix, .cs_free = OS_sync_cs_free##suffix,                      \
        .mem_cs_allocate = OS_mem_sync_cs_allocate##suffix, .mem_cs_free = OS_mem_sync_cs_free##suffix,      \
        .cs_enter = OS_sync_cs_enter##suffix, .cs_leave = OS_sync_cs_leave##suffix,                          \
        .mutex_ID_allocate = OS_mutex_ID_allocate##suffix, .mutex_ID_free = OS_mutex_ID_free##suffix,        \
        .mutex_open = OS_mutex_open##suffix, .mutex_release = OS_mutex_release##suffix,                      \
        .create_event = OS_create_event##suffix, .close_event = OS_close_event##suffix,                      \
        .set_event = OS_set_event##suffix, .reset_event = OS_reset_event##suffix,                            \
        .wait_for_event = OS_wait_for_event##suffix,                                                         \
    }

inline constexpr sync_operations DISPATCHED_OPERATIONS = SYNC_OPERATIONS("Dispatched", );
inline constexpr sync_operations THREADED_OPERATIONS = SYNC_OPERATIONS("Threaded", _th);
inline constexpr sync_operations EMULATED_OPERATIONS = SYNC_OPERATIONS("Emulated", _emu);

#undef SYNC_OPERATIONS

// Critical sections are made under this tag, which 32 bits do not hold.
constexpr uint64_t SECTION_TAG = 0x5EC'0000'7EAD;

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

inline void open(const sync_operations &operations, LPVOID identifier)
{
    LPVOID handle = nullptr;
    operations.mutex_open(identifier, nullptr, &handle);
}

inline void release(const sync_operations &operations, LPVOID handle)
{
    operations.mutex_release(handle);
}

inline constexpr lock_kind ORDINARY_SECTION = {
    .name = "OrdinaryCriticalSection",
    .created = 1,
    .not_created = 0,
    .freed = 1,
    .create = [](const sync_operations &os, LPVOID *lock) { return os.cs_allocate(SECTION_TAG, lock); },
    .free = [](const sync_operations &os, LPVOID lock) { return os.cs_free(SECTION_TAG, lock); },
    .take = enter,
    .give_back = leave,
};

inline constexpr lock_kind MEM_SYNC_SECTION = {
    .name = "MemSyncCriticalSection",
    .created = 1,
    .not_created = 0,
    .freed = 1,
    .create = [](const sync_operations &os, LPVOID *lock) { return os.mem_cs_allocate(lock); },
    .free = [](const sync_operations &os, LPVOID lock) { return os.mem_cs_free(lock); },
    .take = enter,
    .give_back = leave,
};

inline constexpr lock_kind MUTEX_IDENTIFIER = {
    .name = "MutexIdentifier",
    .created = 0,
    .not_created = -4820,
    .freed = 0,
    .create = [](const sync_operations &os, LPVOID *lock) { return os.mutex_ID_allocate(lock); },
    .free = [](const sync_operations &os, LPVOID lock) { return os.mutex_ID_free(lock); },
    .take = open,
    .give_back = release,
};

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
