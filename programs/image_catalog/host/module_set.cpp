#include "module_set.h"

#include "catalog_memory.h"

#include <limits.h>
#include <string.h>
#include <unistd.h>

struct companion_module {
    bool is_tried;  // a module that could not be loaded is not tried again
    LPVOID handle;
    IMAGE_MODULE_READ read;
};

struct module_set {
    uint64_t tag;
    LPVOID section;  // guards what follows
    companion_module modules[IMAGE_KIND_COUNT];
};

namespace {

constexpr UINT FILE_NAME_SIZE = 64;

// The folder of this executable, with its final separator; empty when it cannot be told.
void find_own_folder(CHAR *folder, uint64_t size)
{
    const ssize_t length = readlink("/proc/self/exe", folder, size - 1);
    folder[length > 0 ? length : 0] = '\0';
    CHAR *last_separator = strrchr(folder, '/');
    if (last_separator != nullptr)
        last_separator[1] = '\0';
}

void load(companion_module &module, const CHAR *file_name)
{
    CHAR folder[PATH_MAX];
    find_own_folder(folder, sizeof folder);
    // A bare name would be searched for in the system's folders.
    if (folder[0] == '\0')
        return;
    const uint64_t tag = memory_tag();
    const CHAR *path = memory_path(tag, folder, file_name);
    if (path != nullptr)
        module.handle = OS_sys_module_load(path);
    memory_free_all(tag);
    if (module.handle != nullptr)
        module.read =
            reinterpret_cast<IMAGE_MODULE_READ>(OS_sys_sym_get(module.handle, IMAGE_MODULE_FUNCTION));
}

}  // namespace

module_set *modules_open(uint64_t tag)
{
    auto *modules = static_cast<module_set *>(memory_alloc(tag, sizeof(module_set)));
    if (modules == nullptr)
        return nullptr;
    OS_memset(modules, 0, sizeof(module_set));
    modules->tag = tag;
    modules->section = memory_section(tag);
    return modules->section != nullptr ? modules : nullptr;
}

void modules_close(module_set *modules)
{
    for (companion_module &module : modules->modules)
        if (module.handle != nullptr)
            OS_sys_module_unload(module.handle);
    memory_section_free(modules->tag, modules->section);
}

IMAGE_MODULE_READ modules_reader(module_set *modules, image_kind kind, IMAGE_FACTS &facts)
{
    CHAR file_name[FILE_NAME_SIZE];
    OS_sys_compfilename_create(name_of_kind(kind), file_name, FILE_NAME_SIZE);

    const inside_section inside(modules->section);
    companion_module &module = modules->modules[static_cast<INT>(kind)];
    if (!module.is_tried)
        load(module, file_name);
    module.is_tried = true;
    if (module.handle == nullptr)
        OS_sprintf(facts.problem, "its module %s cannot be loaded", file_name);
    else if (module.read == nullptr)
        OS_sprintf(facts.problem, "its module %s lacks the function %s", file_name, IMAGE_MODULE_FUNCTION);
    return module.read;
}
