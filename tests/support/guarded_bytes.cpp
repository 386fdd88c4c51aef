#include "support/guarded_bytes.h"

#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <new>

namespace {

size_t page_bytes()
{
    return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

size_t whole_pages(size_t size)
{
    return (size / page_bytes() + 1) * page_bytes();
}

}  // namespace

guarded_bytes::guarded_bytes(size_t size) : size_(size), accessible_bytes_(whole_pages(size))
{
    void *pages = mmap(nullptr, accessible_bytes_ + page_bytes(), PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pages == MAP_FAILED)
        throw std::bad_alloc();
    mapping_ = static_cast<uint8_t *>(pages);
    end_ = mapping_ + accessible_bytes_;
    if (mprotect(end_, page_bytes(), PROT_NONE) != 0) {
        munmap(mapping_, accessible_bytes_ + page_bytes());
        throw std::bad_alloc();
    }
}

guarded_bytes::guarded_bytes(const void *content, size_t size) : guarded_bytes(size)
{
    if (size != 0)
        memcpy(data(), content, size);
}

guarded_bytes::~guarded_bytes()
{
    munmap(mapping_, accessible_bytes_ + page_bytes());
}
