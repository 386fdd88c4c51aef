#include "catalog_memory.h"

#include <malloc.h>
#include <string.h>

namespace {

constexpr uint64_t POOL_BLOCK_BYTES = 240 * 1024;

/* Blocks above this go back to the system when they are freed. By itself the C library keeps up to 64 MiB for
 * each of many threads, once large blocks have been freed. */
constexpr INT LARGE_BLOCK_BYTES = 256 * 1024;

constexpr const CHAR *SOURCE = "catalog_memory";

/* A mem-sync section, because an ordinary one would itself be a block of the manager that it guards. The
 * manager is one table for the whole process, and so is this. */
LPVOID manager_section = nullptr;

}  // namespace

bool memory_open()
{
    mallopt(M_MMAP_THRESHOLD, LARGE_BLOCK_BYTES);
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

memory_pool memory_pool_open(uint64_t tag)
{
    return {tag, nullptr, 0};
}

LPVOID memory_pool_alloc(memory_pool &pool, uint64_t size, uint64_t alignment)
{
    if (size > POOL_BLOCK_BYTES / 4)
        return memory_alloc(pool.tag, size);
    const uint64_t gap = (alignment - reinterpret_cast<uintptr_t>(pool.free_bytes) % alignment) % alignment;
    if (pool.free_bytes == nullptr || pool.free_count < gap + size) {
        auto *block = static_cast<BYTE *>(memory_alloc(pool.tag, POOL_BLOCK_BYTES));
        if (block == nullptr)
            return nullptr;
        pool.free_bytes = block + size;  // a block's beginning suits every alignment
        pool.free_count = POOL_BLOCK_BYTES - size;
        return block;
    }
    BYTE *piece = pool.free_bytes + gap;
    pool.free_bytes = piece + size;
    pool.free_count -= gap + size;
    return piece;
}

CHAR *memory_pool_text(memory_pool &pool, const CHAR *text)
{
    const uint64_t size = strlen(text) + 1;
    auto *copy = static_cast<CHAR *>(memory_pool_alloc(pool, size, 1));
    if (copy != nullptr)
        OS_memcpy(copy, text, size);
    return copy;
}

ZT_DT_ANY *memory_array(uint64_t tag, uint64_t increment)
{
    const inside_section inside(manager_section);
    ZT_DT_ANY *array = nullptr;
    ZR_array_ptr_alloc(tag, &array, increment, 0, nullptr);
    return array;
}

bool memory_array_add(ZT_DT_ANY *array, LPVOID element)
{
    const inside_section inside(manager_section);
    return ZR_array_ptr_add(array, element, nullptr) == 0;
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
