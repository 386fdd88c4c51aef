// The ways to compute a CRC-32, of which the processor at hand decides. Private to the unit.
#pragma once

#include "foundation/types.h"

constexpr UINT CRC_POLYNOMIAL = 0xEDB88320;  // 0x04C11DB7 with its bits reversed
constexpr UINT CRC_INITIAL = 0xFFFFFFFF;     // added to a message's first 32 bits, and to the remainder

struct crc_kernel {
    const char *name;  // shown by tests
    bool (*runs_here)();
    uint64_t (*calculate)(const BYTE *bytes, uint64_t length);  // any length; needs the table built
};

// Fastest first. The last one runs everywhere, so a search always ends.
extern const crc_kernel crc_kernels[3];

bool has_avx512_folding();
bool has_pclmul_folding();

uint64_t calculate_by_avx512(const BYTE *bytes, uint64_t length);
uint64_t calculate_by_pclmul(const BYTE *bytes, uint64_t length);
uint64_t calculate_by_table(const BYTE *bytes, uint64_t length);
