// The table of what each operation asks of the heap: as it is, and as docs/heap-traffic.md shows it.

#include "failures/heap_traffic.h"

#include "foundation/memory.h"
#include "foundation/os.h"

#include "support/files.h"
#include "support/thread_functions.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <fstream>

namespace {

std::vector<traffic_section> every_section()
{
    std::vector<traffic_section> sections = {memory_traffic(), array_traffic()};
    for (const traffic_section &section : synchronisation_traffic())
        sections.push_back(section);
    sections.push_back(service_traffic());
    return sections;
}

std::vector<block_kind> kinds_of(const traffic_section &section)
{
    std::vector<block_kind> kinds = {{heap_call::CALLOC, 336, "node"}, {heap_call::CALLOC, 360, "record"}};
    kinds.insert(kinds.end(), section.kinds.begin(), section.kinds.end());
    return kinds;
}

// Blocks that nobody records any more, as a client would release them.
void release_what_is_left(const heap_trace &heap)
{
    for (void *block : heap.unreleased_blocks())
        free(block);
}

void check(const traffic_section &section, const traffic_row &row)
{
    ASSERT_EQ(ZR_memm_cleanup(), 0);
    call_trace calls(nullptr, kinds_of(section), section.other_blocks);
    heap_trace &heap = calls.heap();
    row.prepare();
    heap.take_steps();
    if (row.refuses_mutex)
        calls.fail(thread_function::MUTEX_INIT);
    if (row.refused != 0)
        heap.refuse_allocation(row.refused - 1);
    row.act();
    heap.allow_allocations();
    EXPECT_EQ(heap.take_steps(), row.expected)
        << section.heading << ", " << row.operation << ": " << row.situation;
    ZR_memm_cleanup();
    release_what_is_left(heap);
}

std::string joined(const steps &list)
{
    std::string text;
    for (const std::string &each : list)
        text += (text.empty() ? "" : "; ") + each;
    return text.empty() ? "none" : text;
}

std::string page()
{
    std::ostringstream text;
    text << "# Heap traffic\n\n"
            "What each operation asks of the platform's heap: every request and release, in order, with its "
            "size in\nbytes. Hosts that count blocks or bytes, or put a heap of their own in front of the C "
            "library's, can rely on\nit. No other operation asks for anything; where one opens a stream or a "
            "module, the C library does.\n\n"
            "`malloc 10 -> block 1` is a request of 10 bytes and what the block is called from there on; "
            "blocks "
            "are\nnumbered as they are made, those of the preparation first. `free block 2..4` are three "
            "releases, in that\norder.\n\n"
            "The tests check this page line by line (tests/failures/heap_traffic_test.cpp); "
            "`scripts/proofs/heap_traffic\n--accept` writes it.\n";
    for (const traffic_section &section : every_section()) {
        text << "\n## " << section.heading << "\n\n";
        if (!section.introduction.empty())
            text << section.introduction << "\n\n";
        text << "| operation | situation | heap calls |\n|---|---|---|\n";
        for (const traffic_row &row : section.rows)
            text << "| " << row.operation << " | " << (*row.situation != '\0' ? row.situation : "any")
                 << " | " << joined(row.expected) << " |\n";
    }
    return text.str();
}

}  // namespace

TEST(HeapTraffic, IsTheTables)
{
    {
        lookup_trace lookups;
        lookups.replace_by_fakes();
        ASSERT_EQ(OS_threads_support(), 1U);
    }
    for (const traffic_section &section : every_section())
        for (const traffic_row &row : section.rows)
            check(section, row);
}

// With HEAP_TRAFFIC_PAGE in the environment the page is written there and not compared.
TEST(HeapTraffic, IsDocumentedAsTheTableHasIt)
{
    if (const char *path = getenv("HEAP_TRAFFIC_PAGE")) {
        std::ofstream(path) << page();
        return;
    }
    EXPECT_EQ(lines_of(content_of(std::string(SOURCE_DIRECTORY) + "/docs/heap-traffic.md")), lines_of(page()))
        << "scripts/proofs/heap_traffic --accept writes the page anew";
}
