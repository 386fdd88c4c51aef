// The loader knows exported names alone. A program's other functions have names in the symbol table of its
// file, if it was not stripped; the file is mapped for the look-up.

#include "symbols.h"

#include "lock.h"
#include "pages.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <limits.h>
#include <string.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// The system is called directly: the program may have functions of its own for the C library's.
class mapped_file {
public:
    explicit mapped_file(const char *path)
    {
        const int descriptor = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC));
        if (descriptor < 0)
            return;
        struct stat facts;
        if (fstat(descriptor, &facts) == 0 && facts.st_size > 0) {
            void *bytes =
                mmap(nullptr, static_cast<size_t>(facts.st_size), PROT_READ, MAP_PRIVATE, descriptor, 0);
            if (bytes != MAP_FAILED) {
                bytes_ = static_cast<const char *>(bytes);
                size_ = static_cast<uint64_t>(facts.st_size);
            }
        }
        syscall(SYS_close, descriptor);
    }
    ~mapped_file()
    {
        if (bytes_ != nullptr)
            munmap(const_cast<char *>(bytes_), size_);
    }
    mapped_file(const mapped_file &) = delete;
    mapped_file &operator=(const mapped_file &) = delete;

    // `count` records at `offset`, or null when the file does not hold them.
    template <typename Record> const Record *records_at(uint64_t offset, uint64_t count) const
    {
        const bool is_within = offset <= size_ && count <= (size_ - offset) / sizeof(Record);
        return is_within ? reinterpret_cast<const Record *>(bytes_ + offset) : nullptr;
    }

private:
    const char *bytes_ = nullptr;
    uint64_t size_ = 0;
};

const Elf64_Shdr *symbol_section(const Elf64_Ehdr &head, const Elf64_Shdr *sections)
{
    for (int i = 0; i < head.e_shnum; ++i)
        if (sections[i].sh_type == SHT_SYMTAB && sections[i].sh_link < head.e_shnum)
            return &sections[i];
    return nullptr;
}

// The function of a file's symbol table that an address, as the file has it, lies in; null when there is
// none. The name is a kept copy.
const char *function_in_file(const char *path, uint64_t address, uint64_t *offset)
{
    const mapped_file file(path);
    const auto *head = file.records_at<Elf64_Ehdr>(0, 1);
    if (head == nullptr || memcmp(head->e_ident, ELFMAG, SELFMAG) != 0 ||
        head->e_ident[EI_CLASS] != ELFCLASS64)
        return nullptr;
    const auto *sections = file.records_at<Elf64_Shdr>(head->e_shoff, head->e_shnum);
    const Elf64_Shdr *table = sections != nullptr ? symbol_section(*head, sections) : nullptr;
    if (table == nullptr)
        return nullptr;
    const uint64_t count = table->sh_size / sizeof(Elf64_Sym);
    const auto *symbols = file.records_at<Elf64_Sym>(table->sh_offset, count);
    const Elf64_Shdr &texts = sections[table->sh_link];
    const auto *names = file.records_at<char>(texts.sh_offset, texts.sh_size);
    if (symbols == nullptr || names == nullptr)
        return nullptr;
    for (uint64_t i = 0; i < count; ++i) {
        const Elf64_Sym &each = symbols[i];
        const bool is_function = ELF64_ST_TYPE(each.st_info) == STT_FUNC && each.st_shndx != SHN_UNDEF;
        if (!is_function || address < each.st_value || address - each.st_value >= each.st_size ||
            each.st_name >= texts.sh_size)
            continue;
        *offset = address - each.st_value;
        const locked guard;
        return keep_text(names + each.st_name);
    }
    return nullptr;
}

// As the object's file has it: a program at fixed addresses is not moved.
uint64_t address_in_file(const Dl_info &found, uintptr_t address)
{
    const auto *head = static_cast<const Elf64_Ehdr *>(found.dli_fbase);
    const uint64_t base = reinterpret_cast<uintptr_t>(found.dli_fbase);
    return head->e_type == ET_EXEC ? address : address - base;
}

// The loader calls the program by argv[0], which need not be a path from here, and which programs change.
const char *path_of_program()
{
    static const char *path;
    const locked guard;
    if (path == nullptr) {
        char text[PATH_MAX];
        const ssize_t length = readlink("/proc/self/exe", text, sizeof text - 1);
        text[length > 0 ? length : 0] = '\0';
        path = keep_text(text);
    }
    return path;
}

bool is_program(const Dl_info &found)
{
    const auto *head = static_cast<const Elf64_Ehdr *>(found.dli_fbase);
    return reinterpret_cast<uintptr_t>(head) + head->e_phoff == getauxval(AT_PHDR);
}

}  // namespace

symbol symbol_at(uintptr_t address)
{
    // A return address may be the first byte behind a function that does not return.
    const uintptr_t within = address - 1;
    Dl_info found = {};
    if (dladdr(reinterpret_cast<void *>(within), &found) == 0)
        return {};
    const char *path = is_program(found) ? path_of_program() : found.dli_fname;
    uint64_t offset = 0;
    if (const char *name = function_in_file(path, address_in_file(found, within), &offset))
        return {name, offset + 1, path};
    if (found.dli_sname != nullptr)
        return {found.dli_sname, address - reinterpret_cast<uintptr_t>(found.dli_saddr), path};
    return {nullptr, address - reinterpret_cast<uintptr_t>(found.dli_fbase), path};
}

bool is_own_code(uintptr_t address)
{
    static const void *own_base;  // the same whoever stores it
    Dl_info found = {};
    if (own_base == nullptr && dladdr(reinterpret_cast<void *>(&is_own_code), &found) != 0)
        own_base = found.dli_fbase;
    return dladdr(reinterpret_cast<void *>(address), &found) != 0 && found.dli_fbase == own_base;
}
