#include "image_file.h"

#include "entry_order.h"
#include "foundation/util.h"
#include "interrupt.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

namespace {

constexpr uint64_t LARGEST_PIECE = UINT64_C(1) << 24;  // of one read, or one step of the digest

void list_problem(const image_reader &reader, catalogue_entry *entry, const CHAR *reason)
{
    catalogue_set_problem(reader.files, entry, reason);
    entry->state = entry_state::listed;
}

// Looked at before it is opened: opening a pipe or a device may wait, or do something.
bool is_safe_to_open(const catalogue_entry &entry)
{
    struct stat facts = {};
    return entry.is_regular || stat(entry.path, &facts) != 0 || S_ISREG(facts.st_mode);
}

// A regular file, its facts stored; none, with a problem, when it is not one.
qv::file open_for_reading(const image_reader &reader, catalogue_entry *entry)
{
    if (!is_safe_to_open(*entry)) {
        list_problem(reader, entry, "is no regular file");
        return {};
    }
    // Without waiting, should the path have come to mean a pipe in the meantime.
    qv::file file(entry->path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    struct stat facts = {};
    if (!file || fstat(file.descriptor(), &facts) != 0) {
        list_platform_problem(reader.files, entry, "cannot be opened");
        return {};
    }
    if (!S_ISREG(facts.st_mode)) {
        list_problem(reader, entry, "is no regular file");
        return {};
    }
    entry->modified = facts.st_mtime;
    entry->has_modified = true;
    entry->bytes = static_cast<uint64_t>(facts.st_size);
    entry->has_bytes = true;
    return file;
}

enum class reading { complete, ended_early, failed, interrupted };

// `count` bytes from here on; `done` receives the number that were had.
reading read_bytes(qv::file &file, BYTE *bytes, uint64_t count, uint64_t &done)
{
    for (done = 0; done < count;) {
        if (is_interrupted())
            return reading::interrupted;
        const uint64_t piece = count - done < LARGEST_PIECE ? count - done : LARGEST_PIECE;
        const LONG step = file.read(bytes + done, static_cast<UINT>(piece));
        if (step < 0 && errno == EINTR)
            continue;
        if (step <= 0)
            return step == 0 ? reading::ended_early : reading::failed;
        done += static_cast<uint64_t>(step);
    }
    return reading::complete;
}

void compute_digests(const BYTE *bytes, uint64_t size, catalogue_entry *entry)
{
    ZT_MD5_CONTEXT md5;
    MD5Init(&md5);
    for (uint64_t done = 0; done < size; done += LARGEST_PIECE) {
        const uint64_t piece = size - done < LARGEST_PIECE ? size - done : LARGEST_PIECE;
        MD5Update(&md5, bytes + done, static_cast<UINT>(piece));
    }
    MD5Final(&md5);
    OS_memcpy(entry->md5, md5.digest, sizeof entry->md5);
    entry->crc32 = static_cast<uint32_t>(ZR_util_CRC_calc(bytes, size));
    entry->has_digests = true;
}

void ask_module(const image_reader &reader, const BYTE *bytes, catalogue_entry *entry)
{
    const IMAGE_MODULE_READ read = modules_reader(reader.modules, entry->kind);
    entry->lacks_module = read == nullptr;
    if (read == nullptr)
        return;
    IMAGE_FACTS facts = {};
    read(bytes, entry->bytes, &facts);
    entry->width = facts.width;
    entry->height = facts.height;
    entry->has_dpi = facts.has_dpi != 0;
    entry->dpi_x = facts.dpi_x;
    entry->dpi_y = facts.dpi_y;
    if (facts.problem[0] != '\0')
        catalogue_set_problem(reader.files, entry, facts.problem);
}

void examine_content(const image_reader &reader, const BYTE *bytes, catalogue_entry *entry)
{
    compute_digests(bytes, entry->bytes, entry);
    entry->state = entry_state::listed;
    if (entry->kind == UNKNOWN_KIND)
        catalogue_set_problem(reader.files, entry, "is no image of a known kind");
    else
        ask_module(reader, bytes, entry);
}

void list_too_large(const image_reader &reader, catalogue_entry *entry)
{
    CHAR reason[64];
    OS_sprintf(reason, "its %llu bytes do not fit into memory",
               static_cast<unsigned long long>(entry->bytes));
    list_problem(reader, entry, reason);
}

struct first_bytes {
    BYTE bytes[SIGNATURE_SIZE];
    uint64_t count;
};

// The whole file in one block, which the checksum needs.
void read_content(const image_reader &reader, qv::file &file, const first_bytes &first, BYTE *bytes,
                  catalogue_entry *entry)
{
    OS_memcpy(bytes, first.bytes, first.count);
    uint64_t done = 0;
    switch (read_bytes(file, bytes + first.count, entry->bytes - first.count, done)) {
    case reading::complete:
        examine_content(reader, bytes, entry);
        break;
    case reading::ended_early:
        list_problem(reader, entry, "became shorter while it was read");
        break;
    case reading::failed:
        list_platform_problem(reader.files, entry, "cannot be read");
        break;
    case reading::interrupted:
        break;
    }
}

void read_image(const image_reader &reader, qv::file &file, const first_bytes &first, catalogue_entry *entry)
{
    if (entry->bytes > budget_largest_file()) {
        list_too_large(reader, entry);
        return;
    }
    const budget_share share(reader.budget, entry->bytes);
    memory_owner owner;
    auto *bytes = static_cast<BYTE *>(owner.alloc(entry->bytes));
    if (bytes != nullptr)
        read_content(reader, file, first, bytes, entry);
    else
        list_too_large(reader, entry);
}

// An empty file that was named, or whose name says image, is a lost one; others, as there are many, are
// counted.
void judge_empty_file(const image_reader &reader, catalogue_entry *entry)
{
    if (entry->is_named || has_image_ending(name_in_path(entry->path)))
        list_problem(reader, entry, "is empty");
    else
        entry->state = entry_state::empty;
}

}  // namespace

void read_image_file(const image_reader &reader, catalogue_entry *entry)
{
    qv::file file = open_for_reading(reader, entry);
    if (!file)
        return;
    if (entry->bytes == 0) {
        judge_empty_file(reader, entry);
        return;
    }
    first_bytes first = {};
    const uint64_t wanted = entry->bytes < SIGNATURE_SIZE ? entry->bytes : SIGNATURE_SIZE;
    const reading outcome = read_bytes(file, first.bytes, wanted, first.count);
    if (outcome == reading::interrupted)
        return;
    if (outcome == reading::failed) {
        list_platform_problem(reader.files, entry, "cannot be read");
        return;
    }
    entry->kind = recognise_kind(first.bytes, first.count);
    if (entry->kind == UNKNOWN_KIND && !entry->is_named)
        entry->state = entry_state::skipped;
    else
        read_image(reader, file, first, entry);
}

void list_platform_problem(catalogue *files, catalogue_entry *entry, const CHAR *what)
{
    CHAR words[128];
    CHAR reason[IMAGE_PROBLEM_SIZE];
    OS_sprintf(reason, "%s: %.128s", what, strerror_r(errno, words, sizeof words));
    catalogue_set_problem(files, entry, reason);
    entry->state = entry_state::listed;
}
