// CRC-32 beside ISA-L, libdeflate and zlib.

#include "bench.h"

#include "foundation/util.h"

#include <isa-l.h>
#include <libdeflate.h>
#include <zlib.h>

#include <random>

namespace {

std::vector<BYTE> patterned_bytes(size_t count)
{
    std::mt19937 generator(17);
    std::vector<BYTE> bytes(count);
    for (BYTE &byte : bytes)
        byte = static_cast<BYTE>(generator() >> 24);
    return bytes;
}

// ---- CRC-32

using crc_function = uint64_t (*)(const BYTE *bytes, size_t count);

struct crc_rival {
    const char *name;
    crc_function calculate;
};

const crc_rival crc_rivals[] = {
    {"ours",
     [](const BYTE *bytes, size_t count) {
         return ZR_util_CRC_calc(bytes, count);
     }},
    {"isa-l",
     [](const BYTE *bytes, size_t count) -> uint64_t {
         return crc32_gzip_refl(0, bytes, count);
     }},
    {"libdeflate",
     [](const BYTE *bytes, size_t count) -> uint64_t {
         return libdeflate_crc32(0, bytes, count);
     }},
    {"zlib",
     [](const BYTE *bytes, size_t count) -> uint64_t {
         return crc32_z(0, bytes, count);
     }},
};

void crc_of_buffer(benchmark::State &state, crc_function calculate, size_t count, size_t misalignment)
{
    const std::vector<BYTE> bytes = patterned_bytes(count + 128);
    const size_t to_line = (64 - reinterpret_cast<uintptr_t>(bytes.data()) % 64) % 64;
    const BYTE *start = bytes.data() + to_line + misalignment;
    uint64_t crc = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(crc = calculate(start, count));
    if (crc != crc32_z(0, start, count))
        state.SkipWithError("wrong CRC");
}

[[maybe_unused]] const bool crc_registered = [] {
    const std::vector<bench::peer> peers = {{"isa-l"}, {"libdeflate"}, {"zlib"}};
    bench::describe({"Crc32", "CRC-32 of a buffer", "bytes", peers, nullptr, true});
    bench::describe({"Crc32At", "CRC-32 of 4096 bytes, by distance from a cache line", "offset", peers});
    for (const crc_rival &rival : crc_rivals) {
        for (const size_t count : {16, 64, 256, 1024, 4096, 65536, 1 << 20, 16 << 20})
            benchmark::RegisterBenchmark(bench::row("Crc32", rival.name, count).c_str(), crc_of_buffer,
                                         rival.calculate, count, size_t{0});
        for (const size_t offset : {0, 1, 4, 8, 15, 16, 31, 32, 48, 63})
            benchmark::RegisterBenchmark(bench::row("Crc32At", rival.name, offset).c_str(), crc_of_buffer,
                                         rival.calculate, size_t{4096}, offset);
    }
    return true;
}();

}  // namespace
