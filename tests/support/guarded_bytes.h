// A buffer that ends right in front of an inaccessible page: one byte too far ends the process.
#pragma once

#include <stddef.h>
#include <stdint.h>

class guarded_bytes {
public:
    explicit guarded_bytes(size_t size);              // zero-filled
    guarded_bytes(const void *content, size_t size);  // a copy of `content`
    ~guarded_bytes();
    guarded_bytes(const guarded_bytes &) = delete;
    guarded_bytes &operator=(const guarded_bytes &) = delete;

    uint8_t *data() { return end_ - size_; }
    uint8_t *end() { return end_; }  // first byte of the inaccessible page; a multiple of the page size
    size_t size() const { return size_; }
    char *text() { return reinterpret_cast<char *>(data()); }

private:
    size_t size_;
    uint8_t *mapping_;
    uint8_t *end_;
    size_t accessible_bytes_;
};
