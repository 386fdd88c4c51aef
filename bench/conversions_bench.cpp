// Case of texts beside a loop of tolower and GLib; numbers as text beside snprintf.

#include <ctype.h>  // in front of all others, or the C++ library makes tolower a call instead of a look-up

#include "bench.h"

#include "foundation/os.h"
#include "foundation/util.h"

#include <glib.h>

#include <stdio.h>
#include <string.h>

#include <string>

namespace {

// ---- Case

void lower_by_library_function(CHAR *text)
{
    Bsu_strlwr(text);
}

void lower_by_tolower(CHAR *text)
{
    for (; *text != '\0'; ++text)
        *text = static_cast<CHAR>(tolower(static_cast<BYTE>(*text)));
}

void lower_by_glib(CHAR *text)
{
    CHAR *copy = g_ascii_strdown(text, -1);
    benchmark::DoNotOptimize(*copy);
    g_free(copy);
}

// Texts in turn, so that none is read while its last change is still on its way to the cache.
void lower_texts(benchmark::State &state, void (*lower)(CHAR *), size_t length)
{
    std::string mixed;
    while (mixed.size() < length)
        mixed += "The Quick Brown Fox 42 ";
    mixed.resize(length);
    std::string lowered = mixed;
    lower_by_tolower(lowered.data());

    std::vector<std::string> texts(length < 4096 ? 8192 / length : 1, mixed);
    size_t next = 0;
    for (auto _ : state) {
        lower(texts[next].data());
        benchmark::ClobberMemory();
        next = next + 1 == texts.size() ? 0 : next + 1;
    }
    if (lower != lower_by_glib && texts[0] != lowered)
        state.SkipWithError("wrong text");
}

// ---- Numbers as text

constexpr double VALUE = 12345.678901;

template <typename Write> void write_number(benchmark::State &state, Write write, const char *expected)
{
    CHAR buffer[64];
    for (auto _ : state) {
        write(buffer);
        benchmark::DoNotOptimize(buffer);
    }
    if (strcmp(buffer, expected) != 0)
        state.SkipWithError("wrong text");
}

struct number_text {
    INT precision;
    const char *expected;
};

void register_numbers()
{
    bench::describe(
        {"DoubleToText",
         "A number as text",
         "decimals",
         {{"snprintf", "rounds to nearest, for any range of values, and keeps to the buffer's size"}},
         "the calls of `OS_sprintf` through which the text must go"});
    for (const number_text &text :
         {number_text{0, "12346"}, number_text{2, "12345.68"}, number_text{6, "12345.678901"}}) {
        const INT precision = text.precision;
        const auto add = [&](const char *who, auto write) {
            benchmark::RegisterBenchmark(
                bench::row("DoubleToText", who, precision).c_str(),
                [=](benchmark::State &state) { write_number(state, write, text.expected); });
        };
        add("ours", [=](CHAR *buffer) { Bsu_double_to_string(precision, buffer, VALUE); });
        add("snprintf", [=](CHAR *buffer) { snprintf(buffer, 64, "%.*f", precision, VALUE); });
        const INT whole = atoi(text.expected);
        const INT fraction = precision == 0 ? 0 : atoi(strchr(text.expected, '.') + 1);
        add("floor", [=](CHAR *buffer) {
            if (precision == 0) {
                OS_sprintf(buffer, "%d", whole);
                return;
            }
            CHAR format[32];
            OS_sprintf(format, "%%d.%%0%dd", precision);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
            OS_sprintf(buffer, format, whole, fraction);
#pragma GCC diagnostic pop
        });
    }
}

void register_case()
{
    bench::describe({"LowerCase",
                     "A text to lower case",
                     "characters",
                     {{"tolower"}, {"glib", "makes a changed copy, on the heap"}},
                     nullptr,
                     true});
    const struct {
        const char *name;
        void (*lower)(CHAR *);
    } rivals[] = {
        {"ours", lower_by_library_function}, {"tolower", lower_by_tolower}, {"glib", lower_by_glib}};
    for (const auto &rival : rivals)
        for (const size_t length : {8, 16, 32, 64, 128, 256, 1024, 4096, 65536, 1 << 20, 16 << 20})
            benchmark::RegisterBenchmark(bench::row("LowerCase", rival.name, length).c_str(), lower_texts,
                                         rival.lower, length);
}

[[maybe_unused]] const bool registered = (register_case(), register_numbers(), true);

}  // namespace
