// The data of a loaded library, taken from writing: whatever a later call keeps there ends the process.
#pragma once

#include <dlfcn.h>
#include <link.h>
#include <stdint.h>
#include <sys/mman.h>
#include <unistd.h>

extern "C" __attribute__((weak)) void __gcov_init(void *);
extern "C" __attribute__((weak)) int __llvm_profile_runtime;

inline bool counts_coverage()
{
    return &__gcov_init != nullptr || &__llvm_profile_runtime != nullptr;
}

// Take the write permission from all data of the loaded file that holds `address`. The count of its segments.
inline unsigned make_data_read_only(const void *address)
{
    Dl_info file = {};
    link_map *map = nullptr;
    if (dladdr1(address, &file, reinterpret_cast<void **>(&map), RTLD_DL_LINKMAP) == 0)
        return 0;
    const auto *header = static_cast<const ElfW(Ehdr) *>(file.dli_fbase);
    const auto *segments =
        reinterpret_cast<const ElfW(Phdr) *>(static_cast<const char *>(file.dli_fbase) + header->e_phoff);
    const uintptr_t page_mask = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)) - 1;
    unsigned count = 0;
    for (unsigned i = 0; i < header->e_phnum; ++i) {
        if (segments[i].p_type != PT_LOAD || (segments[i].p_flags & PF_W) == 0)
            continue;
        const uintptr_t start = (map->l_addr + segments[i].p_vaddr) & ~page_mask;
        const uintptr_t end = map->l_addr + segments[i].p_vaddr + segments[i].p_memsz;
        if (mprotect(reinterpret_cast<void *>(start), end - start, PROT_READ) == 0)
            ++count;
    }
    return count;
}
