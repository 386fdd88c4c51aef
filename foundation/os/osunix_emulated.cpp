// Synchronisation objects of emulated mode, for processes without thread functions: plain flags that never
// block and protect nothing.

#include "osunix_records.h"

namespace {

template <typename Memory> bool create_flag(Memory memory, UINT value, LPVOID *out)
{
    auto *flag = static_cast<UINT *>(memory.allocate(sizeof(UINT)));
    if (flag != nullptr)
        *flag = value;
    *out = flag;
    return flag != nullptr;
}

template <typename Memory> void free_flag(Memory memory, LPVOID flag)
{
    if (flag != nullptr)
        memory.release(flag);
}

void store_flag_unless_null(LPVOID flag, UINT value)
{
    if (flag != nullptr)
        *static_cast<UINT *>(flag) = value;
}

}  // namespace

// ---- Thread identifier

uintptr_t OS_current_thread_id_get_emu(void)
{
    return 1;
}

// ---- Critical sections. Their flag is no counter, and nothing reads it: two enters and one leave leave it
// 0.

ZT_BOOL OS_sync_cs_allocate_emu(uint64_t tag, LPVOID *section)
{
    return create_flag(tag_memory{tag}, 0, section);
}

ZT_BOOL OS_sync_cs_free_emu(uint64_t tag, LPVOID section)
{
    free_flag(tag_memory{tag}, section);
    return 1;
}

ZT_BOOL OS_mem_sync_cs_allocate_emu(LPVOID *section)
{
    return create_flag(plain_memory{}, 0, section);
}

ZT_BOOL OS_mem_sync_cs_free_emu(LPVOID section)
{
    free_flag(plain_memory{}, section);
    return 1;
}

void OS_sync_cs_enter_emu(LPVOID section)
{
    store_flag_unless_null(section, 1);
}

void OS_sync_cs_leave_emu(LPVOID section)
{
    store_flag_unless_null(section, 0);
}

// ---- Mutex identifiers

ZT_ERRCOUNT OS_mutex_ID_allocate_emu(LPVOID *identifier)
{
    return create_flag(plain_memory{}, 0, identifier) ? 0 : ZR_ERR_MUTEX_ID;
}

ZT_ERRCOUNT OS_mutex_ID_free_emu(LPVOID identifier)
{
    free_flag(plain_memory{}, identifier);
    return 0;
}

// Unlike the threaded one neither recursive nor blocking: nobody else could release it meanwhile.
ZT_BOOL OS_mutex_open_emu(LPVOID identifier, LPVOID, LPVOID *handle)
{
    if (identifier != nullptr) {
        UINT *flag = static_cast<UINT *>(identifier);
        if (*flag != 0)
            return 0;
        *flag = 1;
    }
    *handle = identifier;
    return 1;
}

// Only a flag of exactly 1 counts as taken.
ZT_BOOL OS_mutex_release_emu(LPVOID handle)
{
    UINT *flag = static_cast<UINT *>(handle);
    if (flag == nullptr)
        return 1;
    if (*flag != 1)
        return 0;
    *flag = 0;
    return 1;
}

// ---- Events

ZT_BOOL OS_create_event_emu(LPVOID *out, UINT initial_state, LPVOID)
{
    if (out == nullptr)
        return 0;
    *out = nullptr;  // before the allocation, as in threaded mode
    return create_flag(plain_memory{}, initial_state, out);
}

ZT_BOOL OS_close_event_emu(LPVOID event)
{
    free_flag(plain_memory{}, event);
    return 1;
}

ZT_BOOL OS_set_event_emu(LPVOID event)
{
    store_flag_unless_null(event, 1);
    return 1;
}

ZT_BOOL OS_reset_event_emu(LPVOID event)
{
    store_flag_unless_null(event, 0);
    return 1;
}

// Nothing could signal the event while the only thread waits, so the state is reported as it is.
ZT_BOOL OS_wait_for_event_emu(LPVOID event)
{
    return event == nullptr || *static_cast<UINT *>(event) != 0;
}
