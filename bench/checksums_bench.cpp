// CRC-32 beside ISA-L, libdeflate and zlib; MD5 beside libcrypto, libmd and GLib.

#include "bench.h"
#include "library_copy.h"

#include "foundation/util.h"

#include <glib.h>
#include <isa-l.h>
#include <libdeflate.h>
#include <zlib.h>

#define OPENSSL_SUPPRESS_DEPRECATED  // the old interface is the faster one
#include <openssl/md5.h>

#include <dlfcn.h>
#include <emmintrin.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <string>

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

const BYTE *begin_of_line(const std::vector<BYTE> &bytes)
{
    return bytes.data() + (64 - reinterpret_cast<uintptr_t>(bytes.data()) % 64) % 64;
}

void crc_of_buffer(benchmark::State &state, crc_function calculate, size_t count, size_t offset)
{
    const std::vector<BYTE> bytes = patterned_bytes(count + 128);
    const BYTE *start = begin_of_line(bytes) + offset;
    uint64_t crc = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(crc = calculate(start, count));
    if (crc != crc32_z(0, start, count))
        state.SkipWithError("wrong CRC");
}

void read_buffer(benchmark::State &state, size_t count)
{
    const std::vector<BYTE> bytes = patterned_bytes(count + 64);
    const BYTE *start = begin_of_line(bytes);
    for (auto _ : state) {
        __m128i sums[4] = {};
        for (size_t i = 0; i < count; i += 64)
            for (size_t part = 0; part < 4; ++part)
                sums[part] = _mm_xor_si128(
                    sums[part], _mm_load_si128(reinterpret_cast<const __m128i *>(start + i + 16 * part)));
        benchmark::DoNotOptimize(sums);
    }
}

// The time of the first call after loading. The code's page is read before: to map it costs the same in every
// library and for every function.
template <typename Call, typename... Arguments>
void first_call(benchmark::State &state, const char *name, Call &function, Arguments... arguments)
{
    for (auto _ : state) {
        const bench::library_copy copy(bench::file_of(reinterpret_cast<void *>(&function)));
        void *library = dlopen(copy.path(), RTLD_NOW | RTLD_LOCAL);
        const auto call = reinterpret_cast<Call *>(dlsym(library, name));
        benchmark::DoNotOptimize(*reinterpret_cast<const volatile BYTE *>(call));
        const auto begin = std::chrono::steady_clock::now();
        call(arguments...);
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(seconds.count());
        dlclose(library);
    }
}

void register_first_crc()
{
    bench::describe({"Crc32First",
                     "The first CRC-32 after loading",
                     "bytes",
                     {{"table-alone", "is ours too: `_ZR_make_crc_table` instead of a calculation"},
                      {"isa-l"},
                      {"libdeflate"},
                      {"zlib"}}});
    static const std::vector<BYTE> bytes = patterned_bytes(4096);
    const auto add = [](const char *who, size_t count, auto run) {
        benchmark::RegisterBenchmark(bench::row("Crc32First", who, static_cast<long long>(count)).c_str(),
                                     run)
            ->UseManualTime()
            ->Iterations(10);
    };
    for (const size_t count : {16, 4096}) {
        add("ours", count, [count](benchmark::State &state) {
            first_call(state, "ZR_util_CRC_calc", ZR_util_CRC_calc, bytes.data(), count);
        });
        add("table-alone", count,
            [](benchmark::State &state) { first_call(state, "_ZR_make_crc_table", _ZR_make_crc_table); });
        add("isa-l", count, [count](benchmark::State &state) {
            first_call(state, "crc32_gzip_refl", crc32_gzip_refl, 0, bytes.data(), count);
        });
        add("libdeflate", count, [count](benchmark::State &state) {
            first_call(state, "libdeflate_crc32", libdeflate_crc32, 0, bytes.data(), count);
        });
        add("zlib", count, [count](benchmark::State &state) {
            first_call(state, "crc32_z", crc32_z, 0, bytes.data(), count);
        });
    }
}

void register_crc()
{
    const std::vector<bench::peer> peers = {{"isa-l"}, {"libdeflate"}, {"zlib"}};
    bench::describe({"Crc32", "CRC-32 of a buffer", "bytes", peers,
                     "reading the bytes, sixteen at a time, and nothing else", true});
    bench::describe({"Crc32At", "CRC-32 of 4096 bytes, by distance from a cache line", "offset", peers});
    for (const crc_rival &rival : crc_rivals) {
        for (const size_t count : {16, 32, 63, 64, 100, 256, 1000, 1024, 4096, 65536, 1 << 20, 16 << 20})
            benchmark::RegisterBenchmark(bench::row("Crc32", rival.name, count).c_str(), crc_of_buffer,
                                         rival.calculate, count, size_t{0});
        for (const size_t offset : {0, 1, 4, 8, 15, 16, 31, 32, 48, 63})
            benchmark::RegisterBenchmark(bench::row("Crc32At", rival.name, offset).c_str(), crc_of_buffer,
                                         rival.calculate, size_t{4096}, offset);
    }
    for (const size_t count : {64, 256, 1024, 4096, 65536, 1 << 20, 16 << 20})
        benchmark::RegisterBenchmark(bench::row("Crc32", "floor", count).c_str(), read_buffer, count);

    register_first_crc();
}

// ---- MD5

using digest = std::array<BYTE, 16>;
using digest_function = digest (*)(const BYTE *bytes, size_t count, size_t piece);

// Hand `bytes` to `update` in pieces.
template <typename Update> void feed(const BYTE *bytes, size_t count, size_t piece, Update update)
{
    for (size_t begin = 0; begin < count; begin += piece)
        update(bytes + begin, std::min(piece, count - begin));
}

digest our_digest(const BYTE *bytes, size_t count, size_t piece)
{
    ZT_MD5_CONTEXT context;
    MD5Init(&context);
    feed(bytes, count, piece,
         [&](const BYTE *part, size_t length) { MD5Update(&context, part, static_cast<UINT>(length)); });
    MD5Final(&context);
    digest result;
    memcpy(result.data(), context.digest, result.size());
    return result;
}

digest libcrypto_digest(const BYTE *bytes, size_t count, size_t piece)
{
    MD5_CTX context;
    MD5_Init(&context);
    feed(bytes, count, piece, [&](const BYTE *part, size_t length) { MD5_Update(&context, part, length); });
    digest result;
    MD5_Final(result.data(), &context);
    return result;
}

// libmd's functions have our names, so they are looked up in a copy of their own.
struct libmd {
    void *library = dlopen("libmd.so.0", RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND);
    void (*init)(void *) = reinterpret_cast<void (*)(void *)>(dlsym(library, "MD5Init"));
    void (*update)(void *, const void *,
                   size_t) = reinterpret_cast<void (*)(void *, const void *, size_t)>(dlsym(library,
                                                                                            "MD5Update"));
    void (*final)(BYTE *, void *) = reinterpret_cast<void (*)(BYTE *, void *)>(dlsym(library, "MD5Final"));
};

digest libmd_digest(const BYTE *bytes, size_t count, size_t piece)
{
    static const libmd functions;
    alignas(16) BYTE context[256];  // more than its record, whose header cannot be included beside ours
    functions.init(context);
    feed(bytes, count, piece,
         [&](const BYTE *part, size_t length) { functions.update(context, part, length); });
    digest result;
    functions.final(result.data(), context);
    return result;
}

digest glib_digest(const BYTE *bytes, size_t count, size_t piece)
{
    GChecksum *checksum = g_checksum_new(G_CHECKSUM_MD5);
    feed(bytes, count, piece, [&](const BYTE *part, size_t length) {
        g_checksum_update(checksum, part, static_cast<gssize>(length));
    });
    digest result;
    gsize size = result.size();
    g_checksum_get_digest(checksum, result.data(), &size);
    g_checksum_free(checksum);
    return result;
}

void digest_of_buffer(benchmark::State &state, digest_function calculate, size_t count, size_t piece)
{
    const std::vector<BYTE> bytes = patterned_bytes(count);
    digest result = {};
    for (auto _ : state)
        benchmark::DoNotOptimize(result = calculate(bytes.data(), count, piece));
    if (result != libcrypto_digest(bytes.data(), count, count))
        state.SkipWithError("wrong digest");
}

// 16 steps of 5, 4, 4 and 5 operations, each waiting for the one before it.
void dependency_chain(benchmark::State &state, size_t count)
{
    const size_t blocks = (count + 8) / 64 + 1;
    uint64_t value = 1;
    for (auto _ : state)
        for (size_t link = 0; link < blocks * 288; link += 8)
            __asm__ volatile("add $1, %0; add $1, %0; add $1, %0; add $1, %0;"
                             "add $1, %0; add $1, %0; add $1, %0; add $1, %0"
                             : "+r"(value));
}

void register_md5()
{
    const std::vector<bench::peer> peers = {
        {"libcrypto"}, {"libmd"}, {"glib", "allocates its record, and reports the digest also as a text"}};
    bench::describe({"Md5", "MD5 of a message in one update", "bytes", peers,
                     "288 operations a block, the length of the algorithm's dependency chain", true});
    bench::describe({"Md5By100", "MD5 of a message in updates of 100 bytes", "bytes", peers, nullptr, true});
    const struct {
        const char *name;
        digest_function calculate;
    } rivals[] = {{"ours", our_digest},
                  {"libcrypto", libcrypto_digest},
                  {"libmd", libmd_digest},
                  {"glib", glib_digest}};
    for (const auto &rival : rivals) {
        for (const size_t count : {16, 55, 56, 64, 256, 512, 1024, 4096, 65536, 1 << 20})
            benchmark::RegisterBenchmark(bench::row("Md5", rival.name, count).c_str(), digest_of_buffer,
                                         rival.calculate, count, count);
        for (const size_t count : {100, 1000, 10000, 100000})
            benchmark::RegisterBenchmark(bench::row("Md5By100", rival.name, count).c_str(), digest_of_buffer,
                                         rival.calculate, count, size_t{100});
    }
    for (const size_t count : {16, 55, 56, 64, 256, 512, 1024, 4096, 65536, 1 << 20})
        benchmark::RegisterBenchmark(bench::row("Md5", "floor", count).c_str(), dependency_chain, count);
}

[[maybe_unused]] const bool registered = (register_crc(), register_md5(), true);

}  // namespace
