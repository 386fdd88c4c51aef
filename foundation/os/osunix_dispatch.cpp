// The plain names of the synchronisation operations: each asks for the mode and passes its arguments on.

#include "osunix_threads.h"

#include "foundation/os.h"

UINT OS_threads_support(void)
{
    return is_threaded();
}

// ---- Thread identifier

uintptr_t OS_current_thread_id_get(void)
{
    if (is_threaded())
        return OS_current_thread_id_get_th();
    return OS_current_thread_id_get_emu();
}

// ---- Critical sections

ZT_BOOL OS_sync_cs_allocate(uint64_t tag, LPVOID *section)
{
    if (is_threaded())
        return OS_sync_cs_allocate_th(tag, section);
    return OS_sync_cs_allocate_emu(tag, section);
}

ZT_BOOL OS_sync_cs_free(uint64_t tag, LPVOID section)
{
    if (is_threaded())
        return OS_sync_cs_free_th(tag, section);
    return OS_sync_cs_free_emu(tag, section);
}

ZT_BOOL OS_mem_sync_cs_allocate(LPVOID *section)
{
    if (is_threaded())
        return OS_mem_sync_cs_allocate_th(section);
    return OS_mem_sync_cs_allocate_emu(section);
}

ZT_BOOL OS_mem_sync_cs_free(LPVOID section)
{
    if (is_threaded())
        return OS_mem_sync_cs_free_th(section);
    return OS_mem_sync_cs_free_emu(section);
}

void OS_sync_cs_enter(LPVOID section)
{
    if (is_threaded())
        enter_mutex(section);
    else
        OS_sync_cs_enter_emu(section);
}

void OS_sync_cs_leave(LPVOID section)
{
    if (is_threaded())
        leave_mutex(section);
    else
        OS_sync_cs_leave_emu(section);
}

// ---- Mutex identifiers

ZT_ERRCOUNT OS_mutex_ID_allocate(LPVOID *identifier)
{
    if (is_threaded())
        return OS_mutex_ID_allocate_th(identifier);
    return OS_mutex_ID_allocate_emu(identifier);
}

ZT_ERRCOUNT OS_mutex_ID_free(LPVOID identifier)
{
    if (is_threaded())
        return OS_mutex_ID_free_th(identifier);
    return OS_mutex_ID_free_emu(identifier);
}

ZT_BOOL OS_mutex_open(LPVOID identifier, LPVOID reserved, LPVOID *handle)
{
    if (is_threaded())
        return OS_mutex_open_th(identifier, reserved, handle);
    return OS_mutex_open_emu(identifier, reserved, handle);
}

ZT_BOOL OS_mutex_release(LPVOID handle)
{
    if (is_threaded())
        return OS_mutex_release_th(handle);
    return OS_mutex_release_emu(handle);
}

// ---- Events

ZT_BOOL OS_create_event(LPVOID *event, UINT initial_state, LPVOID reserved)
{
    if (is_threaded())
        return OS_create_event_th(event, initial_state, reserved);
    return OS_create_event_emu(event, initial_state, reserved);
}

ZT_BOOL OS_close_event(LPVOID event)
{
    if (is_threaded())
        return OS_close_event_th(event);
    return OS_close_event_emu(event);
}

ZT_BOOL OS_set_event(LPVOID event)
{
    if (is_threaded())
        return OS_set_event_th(event);
    return OS_set_event_emu(event);
}

ZT_BOOL OS_reset_event(LPVOID event)
{
    if (is_threaded())
        return OS_reset_event_th(event);
    return OS_reset_event_emu(event);
}

ZT_BOOL OS_wait_for_event(LPVOID event)
{
    if (is_threaded())
        return OS_wait_for_event_th(event);
    return OS_wait_for_event_emu(event);
}
