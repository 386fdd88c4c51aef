#include "module_file.h"

#include "foundation/foundation.hpp"

#include <elf.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct module_file {
    qv::file opened;
    uint64_t size;
    CHAR *reason;

    bool refuse(const CHAR *why) const
    {
        OS_strncpy(reason, why, MODULE_REASON_SIZE - 1);
        return false;
    }
    bool refuse_with_platform_words(const CHAR *what) const
    {
        CHAR words[128];
        OS_sprintf(reason, "%s: %.128s", what, strerror_r(errno, words, sizeof words));
        return false;
    }
    bool holds(uint64_t offset, uint64_t count) const { return offset <= size && count <= size - offset; }
    bool read(uint64_t offset, LPVOID bytes, uint64_t count) const
    {
        return holds(offset, count) && pread(opened.descriptor(), bytes, count, static_cast<off_t>(offset)) ==
                                           static_cast<ssize_t>(count);
    }
};

constexpr CHAR CUT_OFF[] = "the file is cut off";

bool is_for_this_processor(const Elf64_Ehdr &header)
{
    return header.e_ident[EI_CLASS] == ELFCLASS64 && header.e_ident[EI_DATA] == ELFDATA2LSB &&
           header.e_ident[EI_VERSION] == EV_CURRENT && header.e_machine == EM_X86_64;
}

bool check_header(const module_file &file, Elf64_Ehdr &header)
{
    if (!file.read(0, &header, sizeof header))
        return file.refuse("it is no shared object");
    if (memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_type != ET_DYN)
        return file.refuse("it is no shared object");
    if (!is_for_this_processor(header))
        return file.refuse("it is for another processor");
    if (header.e_phnum == 0 || header.e_phentsize != sizeof(Elf64_Phdr))
        return file.refuse("it has no segments that could be loaded");
    return true;
}

bool check_segments(const module_file &file, const Elf64_Ehdr &header)
{
    bool has_dynamic_section = false;
    for (uint64_t i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment;
        if (header.e_phoff > file.size ||
            !file.read(header.e_phoff + i * sizeof segment, &segment, sizeof segment))
            return file.refuse(CUT_OFF);
        // Read by the loader straight from what the segments put into memory: none may begin behind it.
        if (segment.p_type != PT_NULL && segment.p_type != PT_GNU_STACK &&
            !file.holds(segment.p_offset, segment.p_filesz))
            return file.refuse(CUT_OFF);
        has_dynamic_section = has_dynamic_section || segment.p_type == PT_DYNAMIC;
    }
    return has_dynamic_section || file.refuse("it is no shared object");
}

// The sections play no part in loading, but stand last in a file: they tell whether its end is there.
bool check_sections(const module_file &file, const Elf64_Ehdr &header)
{
    if (header.e_shoff == 0)
        return true;
    if (header.e_shentsize != sizeof(Elf64_Shdr))
        return file.refuse("its section headers have an unknown size");
    for (uint64_t i = 0; i < header.e_shnum; ++i) {
        Elf64_Shdr section;
        if (header.e_shoff > file.size ||
            !file.read(header.e_shoff + i * sizeof section, &section, sizeof section))
            return file.refuse(CUT_OFF);
        if (section.sh_type != SHT_NULL && section.sh_type != SHT_NOBITS &&
            !file.holds(section.sh_offset, section.sh_size))
            return file.refuse(CUT_OFF);
    }
    return true;
}

bool check_open_file(module_file &file)
{
    struct stat facts = {};
    if (fstat(file.opened.descriptor(), &facts) != 0)
        return file.refuse_with_platform_words("it cannot be read");
    if (!S_ISREG(facts.st_mode))
        return file.refuse("it is no regular file");
    file.size = static_cast<uint64_t>(facts.st_size);
    Elf64_Ehdr header;
    return check_header(file, header) && check_segments(file, header) && check_sections(file, header);
}

}  // namespace

bool is_loadable_file(const CHAR *path, CHAR *reason)
{
    OS_memset(reason, 0, MODULE_REASON_SIZE);
    // Without waiting: it may be a pipe.
    module_file file = {qv::file(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC), 0, reason};
    return file.opened ? check_open_file(file) : file.refuse_with_platform_words("it cannot be opened");
}
