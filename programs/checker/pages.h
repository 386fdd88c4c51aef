// Memory of the checker's own, from the system's pages: the host's heap is left alone.
#pragma once

#include <stdint.h>

// Zero-filled, aligned to 16 bytes, never given back. Ends the process when there is none. Under the lock.
void *take_bytes(uint64_t size);

// A copy of a text; null stays null. Under the lock.
const char *keep_text(const char *text);

// Whole pages, for tables that grow.
void *map_pages(uint64_t size);
void unmap_pages(void *pages, uint64_t size);
