#include "folder_walk.h"

#include "catalog_memory.h"

#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>

namespace {

constexpr uint64_t FOLDERS_INCREMENT = 64;

/* Folders still to be listed, used as a stack: one folder is open at a time, however deep they nest. */
struct walk {
    uint64_t tag;
    ZT_DT_ANY *folders;
    work_crew *crew;
    catalogue *files;
};

bool is_folder(const CHAR *path)
{
    struct stat facts = {};
    return stat(path, &facts) == 0 && S_ISDIR(facts.st_mode);
}

void push_folder(const walk &state, const CHAR *path)
{
    CHAR *copy = memory_text(state.tag, path);
    if (copy == nullptr || state.folders == nullptr || !memory_array_add(state.folders, copy))
        catalogue_count_lost(state.files);
}

// A link that leads nowhere is handed on like a file: reading it gives the reason.
void visit_link(const walk &state, const CHAR *path)
{
    struct stat target = {};
    if (stat(path, &target) != 0 || S_ISREG(target.st_mode))
        crew_add(state.crew, path, false);
    else if (!S_ISDIR(target.st_mode))
        catalogue_count_skipped(state.files);
}

void visit(const walk &state, const CHAR *path)
{
    struct stat facts = {};
    if (lstat(path, &facts) != 0 || S_ISREG(facts.st_mode))
        crew_add(state.crew, path, false);
    else if (S_ISLNK(facts.st_mode))
        visit_link(state, path);
    else if (S_ISDIR(facts.st_mode))
        push_folder(state, path);
    else
        catalogue_count_skipped(state.files);
}

void visit_name(const walk &state, const CHAR *folder, const CHAR *name)
{
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0)
        return;
    const uint64_t tag = memory_tag();
    const CHAR *path = memory_path(tag, folder, name);
    if (path != nullptr)
        visit(state, path);
    else
        catalogue_count_lost(state.files);
    memory_free_all(tag);
}

void report_folder(const walk &state, const CHAR *folder)
{
    file_report report;
    report_platform_problem(report, "cannot be listed");
    catalogue_add(state.files, folder, report);
}

void list_folder(const walk &state, const CHAR *folder)
{
    DIR *stream = opendir(folder);
    if (stream == nullptr) {
        report_folder(state, folder);
        return;
    }
    errno = 0;
    while (const dirent *entry = readdir(stream)) {
        visit_name(state, folder, entry->d_name);
        errno = 0;
    }
    if (errno != 0)
        report_folder(state, folder);
    closedir(stream);
}

}  // namespace

void walk_path(const CHAR *path, work_crew *crew, catalogue *files)
{
    if (!is_folder(path)) {
        crew_add(crew, path, true);
        return;
    }
    const uint64_t tag = memory_tag();
    const walk state = {tag, memory_array(tag, FOLDERS_INCREMENT, nullptr), crew, files};
    push_folder(state, path);
    while (const auto *folder = static_cast<const CHAR *>(memory_array_take_last(state.folders)))
        list_folder(state, folder);
    memory_free_all(tag);
}
