#include "folder_walk.h"

#include "entry_order.h"
#include "image_file.h"
#include "interrupt.h"
#include "path_input.h"

#include <dirent.h>
#include <errno.h>
#include <fnmatch.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>

namespace {

constexpr uint64_t FOLDERS_INCREMENT = 256;

/* Folders still to be listed, used as a stack: one folder is open at a time, however deep they nest. */
struct walk {
    memory_pool pool;
    memory_array<const CHAR> folders;
    const options &given;
    work_crew *crew;
    catalogue *files;
};

// The folder that is being listed.
struct open_folder {
    const CHAR *path;
    folder_identity identity;
    uint64_t unreachable;  // files and folders in it whose paths are longer than the system takes
};

folder_identity identity_of(const struct stat &facts)
{
    return {facts.st_dev, facts.st_ino, true};
}

folder_identity identity_of_parent(const CHAR *path)
{
    const uint64_t length = static_cast<uint64_t>(name_in_path(path) - path);
    CHAR folder[PATH_MAX] = ".";
    struct stat facts = {};
    if (length >= sizeof folder)
        return {};
    if (length != 0) {
        OS_memcpy(folder, path, length);
        folder[length] = '\0';
    }
    return stat(folder, &facts) == 0 ? identity_of(facts) : folder_identity{};
}

// A pattern with a "/" is meant for the path, any other for the name alone.
bool is_excluded(const options &given, const CHAR *path, const CHAR *name)
{
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0 || name[0] == '\0')
        return false;
    for (UINT i = 0; i < given.exclude_count; ++i) {
        const CHAR *pattern = given.excludes[i];
        if (fnmatch(pattern, strchr(pattern, '/') != nullptr ? path : name, 0) == 0)
            return true;
    }
    return false;
}

void push_folder(walk &state, const CHAR *path)
{
    CHAR *copy = memory_pool_text(state.pool, path);
    if (copy == nullptr || state.folders.add(copy) != 0)
        catalogue_count_lost(state.files);
}

// Null when there is none left.
const CHAR *pop_folder(walk &state)
{
    const uint64_t count = state.folders.size();
    const CHAR *last = count != 0 ? state.folders[count - 1] : nullptr;
    if (last != nullptr)
        state.folders.remove(count - 1);
    return last;
}

void visit_file(walk &state, const CHAR *path, const open_folder &folder, bool is_regular)
{
    catalogue_entry *entry = catalogue_add(state.files, path, folder.identity);
    if (entry == nullptr)
        return;
    entry->is_regular = is_regular;
    crew_publish(state.crew);
}

void visit_other(walk &state, const CHAR *path, const open_folder &folder)
{
    catalogue_entry *entry = catalogue_add(state.files, path, folder.identity);
    if (entry != nullptr)
        entry->state = entry_state::skipped;
}

// A link that leads nowhere is handed on like a file: reading it gives the reason.
void visit_link(walk &state, const CHAR *path, const open_folder &folder)
{
    struct stat target = {};
    if (stat(path, &target) != 0 || S_ISREG(target.st_mode))
        visit_file(state, path, folder, false);
    else if (!S_ISDIR(target.st_mode))
        visit_other(state, path, folder);
}

// As readdir names it. What cannot be looked at is handed on like a file.
INT type_of(const CHAR *path, INT known)
{
    struct stat facts = {};
    if (known != DT_UNKNOWN)
        return known;
    return lstat(path, &facts) == 0 ? static_cast<INT>(IFTODT(facts.st_mode)) : static_cast<INT>(DT_REG);
}

void visit(walk &state, const CHAR *path, const open_folder &folder, INT type)
{
    if (type == DT_REG)
        visit_file(state, path, folder, true);
    else if (type == DT_LNK)
        visit_link(state, path, folder);
    else if (type == DT_DIR)
        push_folder(state, path);
    else
        visit_other(state, path, folder);
}

void visit_name(walk &state, open_folder &folder, const dirent &found)
{
    const CHAR *name = found.d_name;
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0)
        return;
    if (strlen(folder.path) + strlen(name) + 2 > PATH_MAX) {
        ++folder.unreachable;
        return;
    }
    memory_owner owner;
    const CHAR *path = memory_path(owner, folder.path, name);
    if (path == nullptr)
        catalogue_count_lost(state.files);
    else if (!is_excluded(state.given, path, name))
        visit(state, path, folder, type_of(path, found.d_type));
}

void report_folder(walk &state, const CHAR *folder, const CHAR *what)
{
    const INT reason = errno;
    catalogue_entry *entry = catalogue_add(state.files, folder, identity_of_parent(folder));
    errno = reason;
    if (entry != nullptr)
        list_platform_problem(state.files, entry, what);
}

// One problem for all that lies too deep.
void report_unreachable(walk &state, const open_folder &folder)
{
    CHAR what[96];
    OS_sprintf(what, "holds %llu whose paths are too long",
               static_cast<unsigned long long>(folder.unreachable));
    errno = ENAMETOOLONG;
    report_folder(state, folder.path, what);
}

void list_open_folder(walk &state, DIR *stream, open_folder &folder)
{
    struct stat facts = {};
    if (fstat(dirfd(stream), &facts) == 0)
        folder.identity = identity_of(facts);
    errno = 0;
    while (const dirent *found = is_interrupted() ? nullptr : readdir(stream)) {
        visit_name(state, folder, *found);
        errno = 0;
    }
    if (errno != 0)
        report_folder(state, folder.path, "cannot be listed");
    if (folder.unreachable != 0)
        report_unreachable(state, folder);
}

void list_folder(walk &state, const CHAR *path)
{
    DIR *stream = opendir(path);
    if (stream == nullptr) {
        report_folder(state, path, "cannot be listed");
        return;
    }
    open_folder folder = {path, {}, 0};
    list_open_folder(state, stream, folder);
    closedir(stream);
}

void walk_folder(const CHAR *path, const options &given, work_crew *crew, catalogue *files)
{
    memory_owner owner;
    walk state = {{owner}, {owner.tag(), FOLDERS_INCREMENT}, given, crew, files};
    push_folder(state, path);
    while (const CHAR *folder = pop_folder(state)) {
        if (is_interrupted())
            break;
        list_folder(state, folder);
    }
}

}  // namespace

void walk_path(const CHAR *path, const options &given, work_crew *crew, catalogue *files)
{
    struct stat facts = {};
    if (is_excluded(given, path, name_in_path(path)))
        return;
    if (stat(path, &facts) == 0 && S_ISDIR(facts.st_mode)) {
        walk_folder(path, given, crew, files);
        return;
    }
    catalogue_entry *entry = catalogue_add(files, path, identity_of_parent(path));
    if (entry == nullptr)
        return;
    entry->is_named = true;
    crew_publish(crew);
}

bool walk_standard_input(const options &given, work_crew *crew, catalogue *files)
{
    path_input input;
    path_input_open(input, given.are_names_null_ended ? '\0' : '\n');
    CHAR path[PATH_MAX];
    while (path_input_next(input, path)) {
        if (!input.is_cut) {
            walk_path(path, given, crew, files);
            continue;
        }
        catalogue_entry *entry = catalogue_add(files, path, {});
        errno = ENAMETOOLONG;
        if (entry != nullptr)
            list_platform_problem(files, entry, "cannot be opened");
    }
    return !input.has_failed;
}
