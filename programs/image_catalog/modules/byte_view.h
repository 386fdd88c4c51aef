// A file's bytes, read in a stated byte order and never beyond their end.
#pragma once

#include "foundation/os.h"
#include "foundation/util.h"

enum class byte_order { little_endian, big_endian };

struct byte_view {
    const BYTE *data;
    uint64_t size;
    byte_order order;

    bool holds(uint64_t offset, uint64_t count) const { return offset <= size && count <= size - offset; }

    // The unsigned number in the `count` (1 to 4) bytes at `offset`; 0 when they are not all there.
    uint32_t number(uint64_t offset, uint64_t count) const
    {
        if (!holds(offset, count))
            return 0;
        uint64_t word = 0;
        OS_memcpy(&word, data + offset, count);
        if (order == byte_order::little_endian)
            return static_cast<uint32_t>(ii_dword_swap(word));
        // The number's bytes come out at the top of the low 32 bits.
        return static_cast<uint32_t>(mm_dword_swap(word)) >> (32 - 8 * count);
    }
    BYTE byte(uint64_t offset) const { return static_cast<BYTE>(number(offset, 1)); }
    WORD word(uint64_t offset) const { return static_cast<WORD>(number(offset, 2)); }
    uint32_t dword(uint64_t offset) const { return number(offset, 4); }

    // The same for 8 bytes too. The library swaps each half rightly, but not the two together.
    uint64_t whole(uint64_t offset, uint64_t count) const
    {
        if (count != 8)
            return number(offset, count);
        const uint64_t first = holds(offset, 8) ? dword(offset) : 0;
        const uint64_t second = dword(offset + 4);
        return order == byte_order::little_endian ? second << 32 | first : first << 32 | second;
    }

    // The `count` bytes at `offset`, which must be there, as a view of their own.
    byte_view part(uint64_t offset, uint64_t count) const { return {data + offset, count, order}; }

    bool matches(uint64_t offset, const CHAR *bytes, uint64_t count) const
    {
        return holds(offset, count) && OS_memcmp(data + offset, bytes, count) == 0;
    }
};
