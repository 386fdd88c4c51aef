// The memory manager compiled into a test, with every heap call of its through a logged heap, and with its
// tables in sight.
#pragma once

#include "memory/logged_heap.h"

#include <stdlib.h>
#include <string.h>

static logged_heap *heap_in_use;

static void *logged_malloc(size_t size)
{
    return heap_in_use->allocate(logged_call::MALLOC, size);
}

static void *logged_calloc(size_t count, size_t size)
{
    return heap_in_use->allocate(logged_call::CALLOC, count * size);
}

static void logged_free(void *block)
{
    heap_in_use->release(block);
}

#define malloc logged_malloc
#define calloc logged_calloc
#define free logged_free
#include "foundation/memory/dt_types.cpp"
#undef malloc
#undef calloc
#undef free

#include "foundation/memory/dt_types_check.h"
