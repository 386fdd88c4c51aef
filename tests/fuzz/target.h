// What the fuzz targets share. A target is one function, libFuzzer's, over bytes that may be anything; it
// ends the process when the library differs from what is expected of it.
#pragma once

#include "support/guarded_bytes.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iostream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// The numbers and texts that a target makes of its bytes; zero and empty once they are used up.
class byte_source {
public:
    byte_source(const uint8_t *data, size_t size) : next_(data), left_(size) {}

    template <typename Value> Value take()
    {
        Value value{};
        const size_t count = std::min(sizeof value, left_);
        if (count != 0)
            memcpy(&value, next_, count);
        skip(count);
        return value;
    }

    // Up to so many bytes, none of them zero.
    std::string take_text(size_t limit)
    {
        std::string text = take_bytes(limit);
        text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
        return text;
    }

    std::string take_bytes(size_t limit)
    {
        const size_t count = std::min(limit, left_);
        const std::string bytes(reinterpret_cast<const char *>(next_), count);
        skip(count);
        return bytes;
    }

    size_t left() const { return left_; }

private:
    void skip(size_t count)
    {
        next_ += count;
        left_ -= count;
    }

    const uint8_t *next_;
    size_t left_;
};

[[noreturn]] inline void stop_at_difference(const std::string &difference)
{
    std::cerr << difference << std::endl;
    abort();
}

template <typename Actual, typename Expected>
void require_equal(const char *what, const Actual &actual, const Expected &expected)
{
    if (actual == expected)
        return;
    std::cerr << what << " is " << actual << ", expected " << expected << std::endl;
    abort();
}

inline void require(bool holds, const char *claim)
{
    if (!holds)
        stop_at_difference(std::string("not so: ") + claim);
}

// What stands in a buffer, terminators and all.
inline std::string content(guarded_bytes &buffer)
{
    return {buffer.text(), buffer.size()};
}

inline guarded_bytes &fill(guarded_bytes &buffer, const std::string &bytes)
{
    std::copy(bytes.begin(), bytes.end(), buffer.text());
    return buffer;
}
