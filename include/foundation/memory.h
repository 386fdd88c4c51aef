/* Tagged memory manager: heap blocks recorded under the number of their owner.
 *
 * A memory tag is an unsigned 64-bit number that names an owner. Every block is recorded under one tag
 * and is released alone, with its tag, or with everything. Clients choose tags of their own or draw
 * unique ones. Use no tag 0: it equals the manager's marker for a vacant record, so blocks of tag 0 may
 * lose their record, and are then never released, as soon as another tag that is a multiple of 32 is used.
 *
 * Ownership: a recorded block belongs to the manager until it is freed or disassociated, or its tag or
 * everything is released. Releasing a tag frees its blocks without notice; pointers to them dangle.
 *
 * `file` (text, may be null) and `line` name the call site; they are accepted and ignored.
 *
 * Cost: lookups are linear in the number of blocks of a tag, 13 to a bookkeeping node. Tags are meant to
 * be released whole. The first 13 blocks of the first tag of each bucket (tag modulo 32) cost no
 * bookkeeping allocation.
 *
 * Threads: the manager takes no lock and all tags share one table. Serialise all calls of this family,
 * and those of the functions that allocate through it: array.h, and in os.h OS_sys_path_concat,
 * OS_sync_cs_allocate and OS_sync_cs_free.
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

/* Draw a fresh tag: 0x10000000 in the first call of the process, then one more each time; the library
 * draws one in every OS_sys_path_concat. Never fails. The number of the call, from 0, is joined with
 * ZR_MEMM_UNIQUE_TAG_BIT, so calls 2^28 + 1 to 2^29 repeat the tags of the first 2^28; nothing guards
 * against that. */
uint64_t ZR_memm_unique_tag_get(const CHAR *file, INT line);

/* Allocate `size` bytes and record the block under `tag`. A size of 0 is passed on to the heap.
 * Returns the block, content undefined, or null when the heap refuses it or its bookkeeping; then
 * nothing is recorded and nothing is kept. */
LPVOID ZR_memm_alloc(uint64_t tag, uint64_t size, const CHAR *file, INT line) FOUNDATION_BLOCK_OF(2);

/* Record `block`, which must come from malloc, calloc or realloc, under `tag` as `size` bytes, no more
 * than it has: ZR_memm_realloc copies by that size.
 * Returns the block, now the manager's, or null when `block` is null or the bookkeeping cannot be had;
 * then it stays the caller's. Nothing checks for duplicates: a block associated twice is recorded, and
 * would be released, twice. */
LPVOID ZR_memm_associate(uint64_t tag, LPVOID block, uint64_t size);

/* Release `block`, recorded under `tag`. Returns null when it was released or was null, and `block`
 * itself, untouched, when it is not recorded under that tag. */
LPVOID ZR_memm_free(uint64_t tag, LPVOID block, const CHAR *file, INT line);

/* Move `block`, recorded under `tag`, to a new block of `size` bytes, never in place. The smaller of the
 * recorded and the new size is copied. Returns the new block; or null with `block` untouched when it is
 * not recorded under that tag; or null with `block` RELEASED when the new one cannot be had: unlike
 * realloc, a failed resize loses the old block. Where both may happen, ask ZR_memm_flags first. A null
 * `block` acts as an allocation when the tag has a vacant slot among its records, and otherwise gives null.
 */
LPVOID ZR_memm_realloc(uint64_t tag, LPVOID block, uint64_t size, const CHAR *file,
                       INT line) FOUNDATION_USE_RESULT FOUNDATION_BLOCK_OF(3);

/* Give up the record of `block` under `tag` without releasing it; it becomes the caller's, to be
 * released with free(). Returns null when the record was removed, `block` itself when there was none.
 * `block` must not be null: null is not refused and would falsify the count of a bookkeeping node. */
LPVOID ZR_memm_disassociate(uint64_t tag, LPVOID block);

/* Release every block recorded under `tag`. Returns how many there were, or -1 for a tag without a
 * record. 0 is possible too: when a tag's blocks are freed one by one its record can outlive the last. */
LONG ZR_memm_free_all(uint64_t tag);

/* Returns ZR_MEMM_FLAG_RECORDED when `block` is recorded under `tag`, otherwise 0. `block` is not read. */
uint64_t ZR_memm_flags(uint64_t tag, LPVOID block) FOUNDATION_USE_RESULT;

/* Release every block of every tag and return how many there were. The host calls it at its end; the
 * library never does. Unique tags drawn afterwards do not repeat earlier ones. */
LONG ZR_memm_cleanup(void);

#ifdef __cplusplus
}
#endif

#include "foundation/attributes_end.h"

#endif
