// What it costs a process to load the library: the size of the file, and the pages that loading writes.

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/library_copy.h"
#include "support/scratch_directory.h"
#include "support/text_matches.h"

#include <gtest/gtest.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

class Load : public testing::Test {
protected:
    void SetUp() override
    {
        if (IS_SANITIZED)
            GTEST_SKIP() << "sanitizers and coverage add code, and data that is written at load";
    }
};

struct loaded_object {
    uintptr_t address = 0;
    std::vector<ElfW(Phdr)> segments;

    // The first of this type that has these flags.
    ElfW(Phdr) segment(ElfW(Word) type, ElfW(Word) flags) const
    {
        for (const ElfW(Phdr) & each : segments)
            if (each.p_type == type && (each.p_flags & flags) == flags)
                return each;
        throw std::runtime_error("there is no such segment");
    }
    ElfW(Phdr) writable_segment() const { return segment(PT_LOAD, PF_W); }
    ElfW(Phdr) read_only_after_load() const { return segment(PT_GNU_RELRO, 0); }
};

// The one whose function this is.
loaded_object object_of(const void *function)
{
    Dl_info facts = {};
    if (dladdr(function, &facts) == 0)
        throw std::runtime_error("there is no object with this address");
    loaded_object object;
    object.address = reinterpret_cast<uintptr_t>(facts.dli_fbase);
    dl_iterate_phdr(
        [](dl_phdr_info *info, size_t, void *found) {
            auto *wanted = static_cast<loaded_object *>(found);
            if (info->dlpi_addr == wanted->address)
                wanted->segments.assign(info->dlpi_phdr, info->dlpi_phdr + info->dlpi_phnum);
            return 0;
        },
        &object);
    return object;
}

loaded_object library_of_this_program()
{
    return object_of(dlsym(RTLD_DEFAULT, "ZR_mem_init"));
}

std::string output_of(const std::vector<std::string> &command_line)
{
    const child_result result = run_command(command_line, {"LC_ALL=C"});
    EXPECT_TRUE(result.succeeded()) << result.describe();
    return result.out;
}

uintptr_t rounded_up_to_page(uintptr_t address)
{
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    return (address + page - 1) / page * page;
}

}  // namespace

TEST_F(Load, TakesLessThan64KiBOfDiskOnceTheFileIsStripped)
{
    if (!IS_RELEASE_BUILD)
        GTEST_SKIP() << "the size of a build without its optimisation is nobody's concern";
    const scratch_directory directory;
    const std::string stripped = directory.file("stripped.so");
    output_of({STRIP_PROGRAM, "-o", stripped, loaded_library_path()});
    EXPECT_LT(std::filesystem::file_size(stripped), 64U * 1024);
}

TEST_F(Load, RelocatesNothingThatStaysWritable)
{
    const ElfW(Phdr) read_only = library_of_this_program().read_only_after_load();
    const std::vector<std::string> places =
        matches(output_of({READELF_PROGRAM, "-W", "-r", loaded_library_path()}), "^([0-9a-f]+) .* R_X86_64_");
    ASSERT_FALSE(places.empty());
    for (const std::string &place : places) {
        const uint64_t address = std::stoull(place, nullptr, 16);
        EXPECT_TRUE(address - read_only.p_vaddr < read_only.p_memsz) << "at " << place;
    }
}

// The loader zeroes what the file leaves of its last page: that must be a page which it relocates anyway.
TEST_F(Load, FindsAllDataThatStaysWritableZero)
{
    const loaded_object library = library_of_this_program();
    const ElfW(Phdr) writable = library.writable_segment();
    const ElfW(Phdr) read_only = library.read_only_after_load();
    EXPECT_EQ(writable.p_vaddr + writable.p_filesz, read_only.p_vaddr + read_only.p_filesz);
}

TEST_F(Load, TouchesNoPageOfTheLibrarysTables)
{
    const library_copy copy;
    const loaded_object library = object_of(reinterpret_cast<void *>(copy.find("ZR_mem_init", ZR_mem_init)));
    const ElfW(Phdr) writable = library.writable_segment();
    const uintptr_t first = rounded_up_to_page(library.address + writable.p_vaddr + writable.p_filesz);
    const uintptr_t end = rounded_up_to_page(library.address + writable.p_vaddr + writable.p_memsz);
    ASSERT_LT(first, end);

    const auto pages = (end - first) / static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    std::vector<unsigned char> in_memory(pages, 1);
    ASSERT_EQ(mincore(reinterpret_cast<void *>(first), end - first, in_memory.data()), 0);
    EXPECT_EQ(std::count(in_memory.begin(), in_memory.end(), 0), static_cast<long>(pages));
}
