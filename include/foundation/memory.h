/* Tagged memory manager: heap blocks recorded under the number of their owner.
 *
 * A memory tag is an unsigned 64-bit number that names an owner. Every block is recorded under one tag and is
 * released alone, with its tag, or with everything. Clients choose tags of their own, or draw unique ones
 * (ZR_memm_unique_tag_get), which spread over all 32 buckets of the table. Addresses make bad tags: those of
 * blocks are multiples of 16, and fall into two buckets.
 *
 * Use no tag 0: it equals the manager's marker for a vacant record, and its blocks get lost in two ways. They
 * may be forgotten, and never released, as soon as another multiple of 32 is used as a tag, and the first
 * unique tag is one; or, recorded while such a tag is in use, they may not be found any more once that is
 * released, and ZR_memm_cleanup alone still releases them.
 *
 * Ownership: a recorded block belongs to the manager until it is freed or disassociated, or its tag or
 * everything is released; handed to free() or realloc(), it would be released twice. Releasing a tag frees
 * its blocks without notice; pointers to them dangle. Blocks are aligned like malloc's, to 16 bytes.
 *
 * The table is empty when the library is loaded and lasts for the life of the process, whether or not the
 * library is closed with dlclose and loaded again. A forked child has a copy of table and blocks.
 *
 * `file` (text, may be null) and `line` name the call site; they are accepted and ignored.
 *
 * Cost: recording, finding and freeing a block are at most linear in the tags of its bucket (tag modulo 32)
 * and in the blocks of its tag, 13 to a bookkeeping node. Where searches ended is remembered, in up to 1 MiB
 * of static memory that is touched as used, so that with fewer than some 10,000 tags and 100,000 blocks the
 * cost seldom depends on their number. The first 13 blocks of the first tag of each bucket cost no
 * bookkeeping allocation.
 *
 * Threads: the manager takes no lock, and all tags share one table. The CALLER must serialise, with one lock
 * of its own (OS_mem_sync_cs_allocate makes one outside the table), all calls of
 *   - this header, ZR_memm_unique_tag_get and ZR_memm_flags included;
 *   - array.h: ZR_array_ptr_alloc, ZR_array_ptr_delete, ZR_array_ptr_add, ZR_array_ptr_remove and
 *     ZR_array_ptr_remove_ex, whichever array they are for;
 *   - os.h: OS_sys_path_concat, and OS_sync_cs_allocate and OS_sync_cs_free with their _th and _emu names.
 * None of them belongs in a signal handler, nor in the child of a fork made during such a call.
 */
#ifndef FOUNDATION_MEMORY_H
#define FOUNDATION_MEMORY_H

#include "foundation/attributes_begin.h"
#include "foundation/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Every tag of ZR_memm_unique_tag_get carries this bit; tags of one's own choice should not. */
#define ZR_MEMM_UNIQUE_TAG_BIT UINT64_C(0x10000000)

/* What ZR_memm_flags returns for a recorded block. */
#define ZR_MEMM_FLAG_RECORDED UINT64_C(2)

/* Does nothing; the manager is ready when the library is loaded. */
void ZR_mem_init(void);

/* Draw a fresh tag: 0x10000000 in the first call of the process, then one more each time; the library itself
 * draws one in every OS_sys_path_concat. Never fails. The number of the call, from 0, is joined with
 * ZR_MEMM_UNIQUE_TAG_BIT, so calls 2^28 + 1 to 2^29 repeat the tags of the first 2^28, and nothing tells. */
uint64_t ZR_memm_unique_tag_get(const CHAR *file, INT line);

/* Allocate `size` bytes and record the block under `tag`. A size of 0 is passed on to the heap, which gives a
 * block of its own without usable bytes. Returns the block, content undefined, or null when the heap refuses
 * it or its bookkeeping; then nothing is recorded and nothing is kept. */
LPVOID ZR_memm_alloc(uint64_t tag, uint64_t size, const CHAR *file, INT line) FOUNDATION_BLOCK_OF(2);

/* Record `block`, which must come from malloc, calloc or realloc, under `tag` as `size` bytes, no more than
 * it has: ZR_memm_realloc copies by that size. Returns the block, now the manager's; or null when `block` is
 * null or the bookkeeping cannot be had, and the block stays the caller's. Nothing checks for duplicates: a
 * block associated twice is recorded twice, and would be released twice. */
LPVOID ZR_memm_associate(uint64_t tag, LPVOID block, uint64_t size);

/* Release `block`, recorded under `tag`. Returns null when it was released or was null, and `block` itself,
 * untouched, when it is not recorded under that tag. */
LPVOID ZR_memm_free(uint64_t tag, LPVOID block, const CHAR *file, INT line);

/* Move `block`, recorded under `tag`, to a new block of `size` bytes, never in place, and release the old
 * one. The smaller of the recorded and the new size is copied; a size of 0 gives a block without usable
 * bytes. Returns the new block; or null with `block` untouched when it is not recorded under that tag; or
 * null with `block` RELEASED when the new one cannot be had: unlike realloc's, the old block is lost, so that
 * its owner must forget it. Where both may happen, ask ZR_memm_flags first. Pass no null: it acts as an
 * allocation when the tag has a vacant slot among its records, and otherwise gives null. */
LPVOID ZR_memm_realloc(uint64_t tag, LPVOID block, uint64_t size, const CHAR *file,
                       INT line) FOUNDATION_USE_RESULT FOUNDATION_BLOCK_OF(3);

/* Give up the record of `block` under `tag` without releasing it; it becomes the caller's, to be released
 * with free(). Returns null when the record was removed, `block` itself when there was none. Pass no null: it
 * is not refused and lowers a bookkeeping node's count, after which blocks of the tag can lose their record
 * and are then never released. */
LPVOID ZR_memm_disassociate(uint64_t tag, LPVOID block);

/* Release every block recorded under `tag`, arrays and the records of critical sections among them (free the
 * sections before: their mutex is not destroyed here). Returns how many blocks there were, or -1 for a tag
 * without a record; 0 is possible too, when a tag's blocks were freed one by one and its record outlived the
 * last. */
LONG ZR_memm_free_all(uint64_t tag);

/* Tell whether `block` is recorded under `tag`. The block is not read. Returns ZR_MEMM_FLAG_RECORDED when it
 * is, otherwise 0; a null `block` gives 0. */
uint64_t ZR_memm_flags(uint64_t tag, LPVOID block) FOUNDATION_USE_RESULT;

/* Release every block of every tag. The host calls it at its end; the library never does. The table is then
 * as it was at load, but for the count of unique tags, which goes on. Returns how many blocks there were. */
LONG ZR_memm_cleanup(void);

#ifdef __cplusplus
}
#endif

#include "foundation/attributes_end.h"

#endif
