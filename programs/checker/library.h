// The library's own functions, behind the ones that the checker puts in front of them.
#pragma once

#include "foundation/array.h"
#include "foundation/memory.h"
#include "foundation/os.h"

#define IN_THREE_MODES(X, name) X(name) X(name##_th) X(name##_emu)

#define CHECKED_FUNCTIONS(X)                                                                                 \
    X(ZR_memm_unique_tag_get)                                                                                \
    X(ZR_memm_alloc)                                                                                         \
    X(ZR_memm_associate)                                                                                     \
    X(ZR_memm_free)                                                                                          \
    X(ZR_memm_realloc)                                                                                       \
    X(ZR_memm_disassociate)                                                                                  \
    X(ZR_memm_free_all)                                                                                      \
    X(ZR_memm_flags)                                                                                         \
    X(ZR_memm_cleanup)                                                                                       \
    X(ZR_array_ptr_alloc)                                                                                    \
    X(ZR_array_ptr_delete)                                                                                   \
    X(ZR_array_ptr_add)                                                                                      \
    X(ZR_array_ptr_set)                                                                                      \
    X(ZR_array_ptr_get)                                                                                      \
    X(ZR_array_ptr_find)                                                                                     \
    X(ZR_array_ptr_index_get)                                                                                \
    X(ZR_array_ptr_count_get)                                                                                \
    X(ZR_array_ptr_remove_ex)                                                                                \
    X(ZR_array_ptr_remove)                                                                                   \
    X(OS_sys_path_concat)                                                                                    \
    X(OS_realloc)                                                                                            \
    X(OS_free)                                                                                               \
    X(OS_threads_support)                                                                                    \
    IN_THREE_MODES(X, OS_sync_cs_allocate)                                                                   \
    IN_THREE_MODES(X, OS_sync_cs_free)                                                                       \
    IN_THREE_MODES(X, OS_mem_sync_cs_allocate)                                                               \
    IN_THREE_MODES(X, OS_mem_sync_cs_free)                                                                   \
    IN_THREE_MODES(X, OS_sync_cs_enter)                                                                      \
    IN_THREE_MODES(X, OS_sync_cs_leave)                                                                      \
    IN_THREE_MODES(X, OS_mutex_ID_allocate)                                                                  \
    IN_THREE_MODES(X, OS_mutex_ID_free)                                                                      \
    IN_THREE_MODES(X, OS_mutex_open)                                                                         \
    IN_THREE_MODES(X, OS_mutex_release)                                                                      \
    IN_THREE_MODES(X, OS_create_event)                                                                       \
    IN_THREE_MODES(X, OS_close_event)                                                                        \
    IN_THREE_MODES(X, OS_set_event)                                                                          \
    IN_THREE_MODES(X, OS_reset_event)                                                                        \
    IN_THREE_MODES(X, OS_wait_for_event)

struct library_functions {
#define DECLARE(name) decltype(&::name) name;
    CHECKED_FUNCTIONS(DECLARE)
#undef DECLARE
};

// Looked up when the checker is loaded, or at the first call where a module brings the library later.
const library_functions &library();

// At load: look up what is there, and leave no trace in dlerror.
void look_up_library();

// Before that: a look-up that fails releases its message, and must not have to look up the function for it.
void look_up_heap();
