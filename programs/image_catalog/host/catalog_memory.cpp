#include "catalog_memory.h"

#include <malloc.h>
#include <string.h>

namespace {

constexpr uint64_t POOL_BLOCK_BYTES = 240 * 1024;

/* Blocks above this go back to the system when they are freed. By itself the C library keeps up to 64 MiB for
 * each of many threads, once large blocks have been freed. */
constexpr INT LARGE_BLOCK_BYTES = 256 * 1024;

/* A mem-sync section, because an ordinary one would itself be a block of the manager that it guards. The
 * manager is one table for the whole process, and so is this. */
qv::mem_section manager_section(qv::none);

}  // namespace

bool memory_open()
{
    mallopt(M_MMAP_THRESHOLD, LARGE_BLOCK_BYTES);
    ZR_mem_init();
    manager_section = qv::mem_section();
    return bool(manager_section);
}

LONG memory_close()
{
    manager_section = qv::mem_section(qv::none);
    return ZR_memm_cleanup();
}

manager_guard::manager_guard() : lock_guard(manager_section)
{
}

CHAR *memory_path(memory_owner &owner, const CHAR *directory, const CHAR *name)
{
    const uint64_t size = strlen(directory) + strlen(name) + 2;  // a separator and the terminator
    auto *path = static_cast<CHAR *>(owner.alloc(size));
    if (path == nullptr)
        return nullptr;
    const manager_guard inside;
    const bool is_joined = OS_sys_path_concat(directory, name, path, static_cast<UINT>(size)) != 0;
    return is_joined ? path : nullptr;
}

LPVOID memory_pool_alloc(memory_pool &pool, uint64_t size, uint64_t alignment)
{
    if (size > POOL_BLOCK_BYTES / 4)
        return pool.owner.alloc(size);
    const uint64_t gap = (alignment - reinterpret_cast<uintptr_t>(pool.free_bytes) % alignment) % alignment;
    if (pool.free_bytes == nullptr || pool.free_count < gap + size) {
        auto *block = static_cast<BYTE *>(pool.owner.alloc(POOL_BLOCK_BYTES));
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
