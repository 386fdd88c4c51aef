// A simple and slow model of one pointer array: its elements, and where a new one or a key is looked for. It
// calls the comparator where the library must, with the same arguments in the same order.
#pragma once

#include "foundation/array.h"

#include <vector>

inline constexpr uint64_t UNWRITTEN = 0xDEADBEEFCAFEF00D;  // preset in out-parameters

inline uintptr_t value_of(LPVOID element)
{
    return reinterpret_cast<uintptr_t>(element);
}

inline LPVOID element(uintptr_t value)
{
    return reinterpret_cast<LPVOID>(value);
}

struct array_model {
    uint64_t tag;
    uint64_t increment;
    INT sorted;
    ZT_ARRAY_PTR_COMPARE compare;
    uint64_t capacity;
    unsigned record;  // blocks of the memory model
    unsigned vector;  // 0 for none
    std::vector<uintptr_t> elements;

    bool is_in_sorted_mode() const { return sorted != 0 && compare != nullptr; }

    // The place of a new element.
    uint64_t place_for(uintptr_t value) const
    {
        if (is_in_sorted_mode())
            for (uint64_t i = 0; i < elements.size(); ++i)
                if (compare(element(elements[i]), element(value)) > 0)
                    return i;
        return elements.size();
    }

    // UNWRITTEN when there is no match.
    uint64_t search(uintptr_t key) const
    {
        if (elements.empty())
            return UNWRITTEN;
        if (sorted != 0)
            return compare != nullptr ? binary_search(key) : UNWRITTEN;
        for (uint64_t i = 0; i < elements.size(); ++i)
            if (compare(element(key), element(elements[i])) == 0)
                return i;
        return UNWRITTEN;
    }

    // The bounds move onto the middle, not past it; two that are adjacent are closed by a jump.
    uint64_t binary_search(uintptr_t key) const
    {
        uint64_t low = 0;
        uint64_t high = elements.size() - 1;
        for (;;) {
            const uint64_t middle = (low + high) / 2;
            const INT order = compare(element(key), element(elements[middle]));
            if (order == 0)
                return middle;
            if (middle == (order < 0 ? low : high))
                return UNWRITTEN;
            if (order < 0)
                high = middle;
            else
                low = high - middle == 1 ? high : middle;
        }
    }
};
