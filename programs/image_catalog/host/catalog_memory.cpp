#include "catalog_memory.h"

#include <string.h>

namespace {

constexpr const CHAR *SOURCE = "catalog_memory";

/* A mem-sync section, because an ordinary one would itself be a block of the manager that it guards. The
 * manager is one table for the whole process, and so is this. */
LPVOID manager_section = nullptr;

}  // namespace

bool memory_open()
{
    ZR_mem_init();
    return OS_mem_sync_cs_allocate(&manager_section) != 0;
}

LONG memory_close()
{
    OS_mem_sync_cs_free(manager_section);
    manager_section = nullptr;
    return ZR_memm_cleanup();
}

uint64_t memory_tag()
{
    const inside_section inside(manager_section);
    return ZR_memm_unique_tag_get(SOURCE, __LINE__);
}

LPVOID memory_alloc(uint64_t tag, uint64_t size)
{
    const inside_section inside(manager_section);
    return ZR_memm_alloc(tag, size, SOURCE, __LINE__);
}

void memory_free_all(uint64_t tag)
{
    const inside_section inside(manager_section);
    ZR_memm_free_all(tag);
}

CHAR *memory_text(uint64_t tag, const CHAR *text)
{
    const uint64_t size = strlen(text) + 1;
    auto *copy = static_cast<CHAR *>(memory_alloc(tag, size));
    if (copy != nullptr)
        OS_memcpy(copy, text, size);
    return copy;
}

CHAR *memory_path(uint64_t tag, const CHAR *directory, const CHAR *name)
{
    const uint64_t size = strlen(directory) + strlen(name) + 2;  // a separator and the terminator
    auto *path = static_cast<CHAR *>(memory_alloc(tag, size));
    if (path == nullptr)
        return nullptr;
    const inside_section inside(manager_section);
    const bool is_joined = OS_sys_path_concat(directory, name, path, static_cast<UINT>(size)) != 0;
    return is_joined ? path : nullptr;
}

ZT_DT_ANY *memory_array(uint64_t tag, uint64_t increment, ZT_ARRAY_PTR_COMPARE compare)
{
    const inside_section inside(manager_section);
    ZT_DT_ANY *array = nullptr;
    ZR_array_ptr_alloc(tag, &array, increment, compare != nullptr ? 1 : 0, compare);
    return array;
}

bool memory_array_add(ZT_DT_ANY *array, LPVOID element)
{
    const inside_section inside(manager_section);
    // Out of memory, a sorted insertion reports success; only the place is then not written.
    constexpr uint64_t nowhere = UINT64_MAX;
    uint64_t place = nowhere;
    return ZR_array_ptr_add(array, element, &place) == 0 && place != nowhere;
}

LPVOID memory_array_take_last(ZT_DT_ANY *array)
{
    const uint64_t count = array_count(array);
    if (count == 0)
        return nullptr;
    LPVOID last = array_element(array, count - 1);
    const inside_section inside(manager_section);
    ZR_array_ptr_remove(array, count - 1, nullptr);
    return last;
}

LPVOID memory_section(uint64_t tag)
{
    const inside_section inside(manager_section);
    LPVOID section = nullptr;
    OS_sync_cs_allocate(tag, &section);
    return section;
}

void memory_section_free(uint64_t tag, LPVOID section)
{
    const inside_section inside(manager_section);
    OS_sync_cs_free(tag, section);
}

uint64_t array_count(ZT_DT_ANY *array)
{
    uint64_t count = 0;
    ZR_array_ptr_count_get(array, &count);
    return count;
}

LPVOID array_element(ZT_DT_ANY *array, uint64_t index)
{
    LPVOID element = nullptr;
    ZR_array_ptr_get(array, index, &element);
    return element;
}
