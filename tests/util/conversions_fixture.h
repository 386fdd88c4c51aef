// What the tests of conversions share: the functions of the C library that they watch or replace, and the
// reference, which is the processor's own arithmetic.
#pragma once

#include "foundation/util.h"

#include "support/platform_call.h"

#include <stdarg.h>

#include <string>

extern platform_call<double(double, double)> pow_call;
extern platform_call<int(char *, const char *, va_list)> vsprintf_call;

// The same sequence of words in every run.
class word_sequence {
public:
    explicit word_sequence(uint64_t start) : state_(start) {}

    uint64_t next()
    {
        state_ = state_ * UINT64_C(6364136223846793005) + UINT64_C(1442695040888963407);
        return state_;
    }

private:
    uint64_t state_;
};

constexpr double TWO_TO_63 = 9223372036854775808.0;
constexpr double TWO_TO_64 = 18446744073709551616.0;

uint64_t expected_uint64(double value);
INT expected_int32(double value);  // by the instruction that converts

// The text that Bsu_double_to_string writes, and the returned count where that is not the text's length.
std::string fixed_point(INT precision, double value);
