// What the tests of paths and of compound module names share: a buffer that shows what was left alone.
#pragma once

#include "foundation/types.h"

#include "os/sentinel_errno.h"

#include <string>

constexpr CHAR UNTOUCHED = '#';

// A buffer of UNTOUCHED characters, terminated behind them, and what a function left in it.
class output_buffer {
public:
    explicit output_buffer(size_t size) : bytes_(size, UNTOUCHED) {}

    CHAR *text() { return bytes_.data(); }
    const std::string &bytes() const { return bytes_; }

private:
    std::string bytes_;
};

inline std::string untouched(size_t count)
{
    return std::string(count, UNTOUCHED);
}
