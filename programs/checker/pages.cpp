#include "pages.h"

#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr uint64_t CHUNK_BYTES = 1 << 20;

char *chunk;
uint64_t chunk_rest;

[[noreturn]] void end_without_memory()
{
    constexpr char TEXT[] = "qv-check: the system gives no memory for the checker's records\n";
    if (write(STDERR_FILENO, TEXT, sizeof TEXT - 1) < 0)
        abort();
    abort();
}

}  // namespace

void *map_pages(uint64_t size)
{
    void *pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED)
        end_without_memory();
    return pages;
}

void unmap_pages(void *pages, uint64_t size)
{
    munmap(pages, size);
}

void *take_bytes(uint64_t size)
{
    size = (size + 15) / 16 * 16;
    if (size > CHUNK_BYTES / 4)
        return map_pages(size);
    if (size > chunk_rest) {
        chunk = static_cast<char *>(map_pages(CHUNK_BYTES));
        chunk_rest = CHUNK_BYTES;
    }
    void *bytes = chunk;
    chunk += size;
    chunk_rest -= size;
    return bytes;
}

const char *keep_text(const char *text)
{
    if (text == nullptr)
        return nullptr;
    const uint64_t size = strlen(text) + 1;
    return static_cast<char *>(memcpy(take_bytes(size), text, size));
}
