#include "module_set.h"

#include "module_file.h"

#include <dlfcn.h>
#include <elf.h>
#include <limits.h>
#include <link.h>
#include <string.h>
#include <unistd.h>

#include <memory>

struct companion_module {
    bool is_tried = false;  // a module that could not be used is not tried again
    qv::loaded_module loaded{};
    IMAGE_MODULE_READ read = nullptr;
    CHAR problem[MODULE_REASON_SIZE] = "";
};

struct module_set {
    memory_section section;  // guards what follows
    companion_module modules[IMAGE_KIND_COUNT] = {};
};

namespace {

bool refuse(companion_module &module, const CHAR *reason)
{
    OS_strncpy(module.problem, reason, MODULE_REASON_SIZE - 1);
    return false;
}

// The folder of this executable, with its final separator; empty when it cannot be told.
void find_own_folder(CHAR *folder, uint64_t size)
{
    const ssize_t length = readlink("/proc/self/exe", folder, size - 1);
    folder[length > 0 ? length : 0] = '\0';
    CHAR *last_separator = strrchr(folder, '/');
    if (last_separator != nullptr)
        last_separator[1] = '\0';
}

// Where the module is: beside the executable, as it is built, or else in the folder it is installed to, which
// is known relative to the executable's. Null when there is no memory, or no such folder.
const CHAR *find_module(memory_owner &owner, const CHAR *file_name)
{
    CHAR folder[PATH_MAX];
    find_own_folder(folder, sizeof folder);
    // A bare name would be searched for in the system's folders.
    if (folder[0] == '\0')
        return nullptr;
    const CHAR *beside = memory_path(owner, folder, file_name);
    if (beside == nullptr || access(beside, F_OK) == 0)
        return beside;
    const CHAR *installed_folder = memory_path(owner, folder, IMAGE_CATALOG_MODULE_FOLDER);
    const CHAR *installed =
        installed_folder != nullptr ? memory_path(owner, installed_folder, file_name) : nullptr;
    return installed != nullptr && access(installed, F_OK) == 0 ? installed : beside;
}

// The loader begins its words with the file's path, which the message has already.
bool refuse_with_loader_words(companion_module &module, const CHAR *path)
{
    const CHAR *words = dlerror();
    if (words == nullptr)
        return refuse(module, "the loader refuses it");
    const uint64_t length = strlen(path);
    if (strncmp(words, path, length) == 0 && words[length] == ':')
        words += length + 1 + strspn(words + length + 1, " ");
    return refuse(module, words);
}

/* The library loads lazily: a function that is missing would end the program in the middle of its work, at
 * its first call. So the loader is asked for all of them first; the library then gets the same module. */
bool load(companion_module &module, const CHAR *path)
{
    const auto complete = qv::loaded_module::adopt(dlopen(path, RTLD_NOW | RTLD_LOCAL));
    if (complete)
        module.loaded = qv::loaded_module(path);
    return module.loaded || refuse_with_loader_words(module, path);
}

// A symbol of the module itself, and not of what it was linked with, of the type and at least the size
// wanted; null with a problem.
LPVOID find_symbol(companion_module &module, const CHAR *name, INT type, uint64_t size)
{
    LPVOID address = module.loaded.symbol<void>(name);
    Dl_info place = {};
    const Elf64_Sym *symbol = nullptr;
    link_map *object = nullptr;
    if (address == nullptr ||
        dladdr1(address, &place, reinterpret_cast<void **>(const_cast<Elf64_Sym **>(&symbol)),
                RTLD_DL_SYMENT) == 0 ||
        dlinfo(module.loaded.handle(), RTLD_DI_LINKMAP, &object) != 0 || symbol == nullptr ||
        reinterpret_cast<uintptr_t>(place.dli_fbase) != object->l_addr) {
        OS_sprintf(module.problem, "it does not export %s", name);
        return nullptr;
    }
    if (ELF64_ST_TYPE(symbol->st_info) != type || symbol->st_size < size) {
        OS_sprintf(module.problem, "its %s is not what the name stands for", name);
        return nullptr;
    }
    return address;
}

bool check_identity(companion_module &module, image_kind kind)
{
    const auto *identity = static_cast<const IMAGE_MODULE_IDENTITY *>(
        find_symbol(module, IMAGE_MODULE_RECORD, STT_OBJECT, sizeof(IMAGE_MODULE_IDENTITY)));
    if (identity == nullptr)
        return false;
    if (identity->version != IMAGE_MODULE_VERSION) {
        OS_sprintf(module.problem, "it has version %u of the interface, this program has version %u",
                   identity->version, IMAGE_MODULE_VERSION);
        return false;
    }
    if (strncmp(identity->kind, name_of_kind(kind), sizeof identity->kind) != 0) {
        OS_sprintf(module.problem, "it is the module for another kind, \"%.12s\"", identity->kind);
        return false;
    }
    return true;
}

// The words may quote a damaged file.
void make_printable(CHAR *words)
{
    for (; *words != '\0'; ++words)
        if (*words < ' ' || *words > '~')
            *words = '?';
}

void use_module(companion_module &module, image_kind kind)
{
    CHAR file_name[MODULE_FILE_NAME_SIZE];
    module_file_name(kind, file_name);
    memory_owner owner;
    const CHAR *path = find_module(owner, file_name);
    if (path == nullptr)
        refuse(module, "this program cannot tell where it is");
    else if (is_loadable_file(path, module.problem) && load(module, path) && check_identity(module, kind))
        module.read =
            reinterpret_cast<IMAGE_MODULE_READ>(find_symbol(module, IMAGE_MODULE_FUNCTION, STT_FUNC, 0));
    make_printable(module.problem);
}

}  // namespace

module_set *modules_open(memory_owner &owner)
{
    auto *modules = owner.make<module_set>(memory_section(owner.tag()));
    if (modules == nullptr || modules->section)
        return modules;
    modules_close(modules);
    return nullptr;
}

void modules_close(module_set *modules)
{
    std::destroy_at(modules);
}

IMAGE_MODULE_READ modules_reader(module_set *modules, image_kind kind)
{
    const std::lock_guard inside(modules->section);
    companion_module &module = modules->modules[kind];
    if (!module.is_tried)
        use_module(module, kind);
    module.is_tried = true;
    return module.read;
}

void module_file_name(image_kind kind, CHAR *name)
{
    OS_sys_compfilename_create(name_of_kind(kind), name, MODULE_FILE_NAME_SIZE);
}

const CHAR *modules_problem(const module_set *modules, image_kind kind)
{
    const companion_module &module = modules->modules[kind];
    return module.problem[0] != '\0' ? module.problem : nullptr;
}
