// Gigabytes of address space over a few megabytes of memory: one piece of memory, mapped again and again.
#pragma once

#include <stddef.h>
#include <sys/mman.h>
#include <unistd.h>

#include <new>

class repeated_memory {
public:
    static constexpr size_t PIECE_BYTES = size_t{16} << 20;

    // At least `size` bytes, all zero; a byte that is written changes in every piece.
    explicit repeated_memory(size_t size) : size_((size / PIECE_BYTES + 1) * PIECE_BYTES)
    {
        const int piece = memfd_create("repeated_memory", MFD_CLOEXEC);
        void *reserved = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (piece < 0 || reserved == MAP_FAILED || ftruncate(piece, PIECE_BYTES) != 0)
            throw std::bad_alloc();
        first_ = static_cast<char *>(reserved);
        for (size_t offset = 0; offset < size_; offset += PIECE_BYTES)
            if (mmap(first_ + offset, PIECE_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, piece,
                     0) == MAP_FAILED)
                throw std::bad_alloc();
        close(piece);
    }
    ~repeated_memory() { munmap(first_, size_); }
    repeated_memory(const repeated_memory &) = delete;
    repeated_memory &operator=(const repeated_memory &) = delete;

    char *text() { return first_; }

private:
    size_t size_;
    char *first_;
};
