// Where the records of synchronisation objects come from, in both modes. Private to the library.
#pragma once

#include "foundation/memory.h"
#include "foundation/os.h"

// Ordinary critical sections: the record belongs to a tag and goes with it.
struct tag_memory {
    uint64_t tag;
    LPVOID allocate(uint64_t size) const { return ZR_memm_alloc(tag, size, "osunix", __LINE__); }
    void release(LPVOID record) const { ZR_memm_free(tag, record, "osunix", __LINE__); }
};

// All others: the record lies outside every tag.
struct plain_memory {
    LPVOID allocate(uint64_t size) const { return OS_alloc(size); }
    void release(LPVOID record) const { OS_free(record); }
};
