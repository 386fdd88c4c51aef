// In front of memory.h. A release is noted before the library performs it, and what is new after: what
// another thread then gets from the heap at the same address is never taken for the old block.

#include "calls.h"
#include "checked.h"
#include "library.h"
#include "objects.h"

#include <stdio.h>

namespace {

void note_recorded(place *where, uint64_t tag, LPVOID block, uint64_t size)
{
    object earlier;
    if (!add_object(where, BLOCK, block, tag, size, false, &earlier) || !is_recorded(earlier.kind))
        return;
    char message[160];
    snprintf(message, sizeof message,
             "%s is given %s %p, which is recorded already, and would be released twice", where->function,
             noun_of(earlier.kind), block);
    finding found = found_about(RECORDED_TWICE, where, earlier, message);
    report(&found);
}

// Sections and arrays are made of more than their block.
void report_if_not_block(const place *where, const object &ended)
{
    if (ended.key == 0 || ended.kind == BLOCK)
        return;
    char message[160];
    snprintf(message, sizeof message, "%s is given %s %p; %s", where->function, noun_of(ended.kind),
             reinterpret_cast<void *>(ended.key),
             ended.kind == SECTION ? "OS_sync_cs_free frees it" : "ZR_array_ptr_delete releases it");
    finding found = found_about(WRONG_KIND, where, ended, message);
    report(&found);
}

}  // namespace

CHECKED uint64_t ZR_memm_unique_tag_get(const CHAR *file, INT line)
{
    memory_call call(SITE(file, line));
    const uint64_t tag = call.pass_on([&] { return library().ZR_memm_unique_tag_get(file, line); });
    note_tag_drawn(tag, call.where());
    return tag;
}

CHECKED LPVOID ZR_memm_alloc(uint64_t tag, uint64_t size, const CHAR *file, INT line)
{
    memory_call call(SITE(file, line));
    report_if_tag_zero(call.where(), tag);
    LPVOID block = call.pass_on([&] { return library().ZR_memm_alloc(tag, size, file, line); });
    if (block != nullptr)
        note_recorded(call.where(), tag, block, size);
    return block;
}

CHECKED LPVOID ZR_memm_associate(uint64_t tag, LPVOID block, uint64_t size)
{
    memory_call call(SITE_HERE);
    report_if_tag_zero(call.where(), tag);
    LPVOID result = call.pass_on([&] { return library().ZR_memm_associate(tag, block, size); });
    if (result != nullptr)
        note_recorded(call.where(), tag, block, size);
    return result;
}

CHECKED LPVOID ZR_memm_free(uint64_t tag, LPVOID block, const CHAR *file, INT line)
{
    prepare_look_up(block);
    memory_call call(SITE(file, line));
    object known = {};
    const bool is_ended = block != nullptr && end_object(call.where(), block, tag, &known);
    if (is_ended)
        report_if_not_block(call.where(), known);
    LPVOID result = call.pass_on([&] { return library().ZR_memm_free(tag, block, file, line); });
    if (result != nullptr) {
        if (is_ended)  // the library has lost the record, as it does with tag 0
            revive_object(block);
        report_not_live(call.where(), block, tag, is_ended ? object{} : known);
    }
    return result;
}

CHECKED LPVOID ZR_memm_realloc(uint64_t tag, LPVOID block, uint64_t size, const CHAR *file, INT line)
{
    memory_call call(SITE(file, line));
    if (block == nullptr) {
        finding found = found_at(NULL_RESIZED, call.where(), "ZR_memm_realloc is given null");
        report(&found);
    }
    object known = {};
    const bool is_ended = block != nullptr && end_object(call.where(), block, tag, &known);
    if (is_ended)
        report_if_not_block(call.where(), known);
    LPVOID moved = call.pass_on([&] { return library().ZR_memm_realloc(tag, block, size, file, line); });
    if (moved != nullptr)
        note_recorded(call.where(), tag, moved, size);
    else if (block != nullptr && !is_ended)
        report_not_live(call.where(), block, tag, known);
    return moved;
}

CHECKED LPVOID ZR_memm_disassociate(uint64_t tag, LPVOID block)
{
    memory_call call(SITE_HERE);
    if (block == nullptr) {
        finding found =
            found_at(NULL_DISASSOCIATED, call.where(),
                     "ZR_memm_disassociate is given null, which disturbs the count of a tag's blocks");
        found.has_tag = true;
        found.tag = tag;
        report(&found);
    }
    object known = {};
    const bool is_ended = block != nullptr && end_object(call.where(), block, tag, &known);
    LPVOID result = call.pass_on([&] { return library().ZR_memm_disassociate(tag, block); });
    if (result != nullptr) {
        if (is_ended)
            revive_object(block);
        report_not_live(call.where(), block, tag, is_ended ? object{} : known);
    }
    return result;
}

CHECKED LONG ZR_memm_free_all(uint64_t tag)
{
    memory_call call(SITE_HERE);
    report_if_tag_zero(call.where(), tag);
    end_all_of_tag(call.where(), tag);
    return call.pass_on([&] { return library().ZR_memm_free_all(tag); });
}

CHECKED uint64_t ZR_memm_flags(uint64_t tag, LPVOID block)
{
    memory_call call(SITE_HERE);
    return call.pass_on([&] { return library().ZR_memm_flags(tag, block); });
}

CHECKED LONG ZR_memm_cleanup(void)
{
    memory_call call(SITE_HERE);
    report_leaks("never released before ZR_memm_cleanup");
    end_all(call.where());
    return call.pass_on([&] { return library().ZR_memm_cleanup(); });
}

// Draws a tag and allocates under it; what it allocates it releases.
CHECKED LONG OS_sys_path_concat(const CHAR *directory, const CHAR *name, CHAR *output, UINT limit)
{
    memory_call call(SITE_HERE);
    return call.pass_on([&] { return library().OS_sys_path_concat(directory, name, output, limit); });
}
