/* Operating-system services: modules, paths, heap, memory, text, files, process facts, identifiers, and
 * objects for threads.
 *
 * Almost every service is one call of the platform with a fixed argument or a fixed conversion of the
 * result. A failure shows in the result alone (null, -1 or 0, as listed); errno is what the platform left.
 * Pointers must be valid unless null is mentioned.
 *
 * Ownership: module handles, file descriptors and heap blocks belong to the caller.
 *
 * Threads: every function may be called from any thread, but the CALLER serialises those that allocate
 * through the memory manager with its other calls (the list is in memory.h): OS_sys_path_concat,
 * OS_sync_cs_allocate and OS_sync_cs_free. None is meant for signal handlers.
 */
#ifndef FOUNDATION_OS_H
#define FOUNDATION_OS_H

#include "foundation/attributes_begin.h"
#include "foundation/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Modules, paths and the process ---- */

/* Load a shared object (dlopen with RTLD_LAZY). A name without "/" is searched for as this library's own
 * dependencies would be: the host's DT_RPATH counts, its DT_RUNPATH does not. A null `name` gives the process
 * image, through which the symbols of the program and of all that it was linked with can be looked up, but
 * not those of modules that this function loaded. Returns a handle, to be given back by OS_sys_module_unload,
 * or null; dlerror() in the same thread then says why. */
LPVOID OS_sys_module_load(const CHAR *name) FOUNDATION_USE_RESULT;

/* Look `symbol` up in a module. Returns its address; null when it is not found (dlerror() says why) or
 * `symbol` is null. A null `module` searches the default scope of this library. To call a function that was
 * found:
 *
 *   C++   auto function = reinterpret_cast<function_type *>(
 *             OS_sys_sym_get(module, "name"));
 *   C     function_type *function;
 *         *(LPVOID *)&function = OS_sys_sym_get(module, "name");
 */
LPVOID OS_sys_sym_get(LPVOID module, const CHAR *symbol) FOUNDATION_USE_RESULT;

/* Give a module handle back (dlclose), once for each load. Returns 0 on success, another value on failure
 * (dlerror() says why). Null is not refused: the platform's dlclose reads through it. */
INT OS_sys_module_unload(LPVOID module);

/* Join `directory` and `name` with one "/" between them, unless `directory` already ends in "/"; with an
 * empty directory the name is copied alone. Nothing else is normalised: "a/" and "/b" give "a//b". At most
 * `limit` characters are stored in `output`, which may be `directory` or `name`, and a terminator only when
 * the joined text is shorter than `limit`. So give a zero-filled buffer and, as the limit, its size minus
 * one. Returns the length of what then stands in `output`, measured as a terminated text and read on behind
 * `limit` where there is no terminator; 0 can mean that scratch memory could not be had, `output` untouched,
 * or that both texts are empty. */
LONG OS_sys_path_concat(const CHAR *directory, const CHAR *name, CHAR *output, UINT limit)
    FOUNDATION_NONNULL(1, 2, 3);

/* Compose the file name of a companion module: "libQV", `base`, "17.so". At most `limit` characters are
 * stored in `output`; a shorter name is padded with zero bytes up to `limit`, a name of `limit` characters or
 * more stands unterminated, so give as the limit the size of a zero-filled buffer minus one. Returns the
 * name's length, -1 when it exceeds `limit`, and 0, output untouched, for a null `base`; a base of more than
 * 245 characters gives -1 and leaves the output untouched too. */
LONG OS_sys_compfilename_create(const CHAR *base, CHAR *output, UINT limit);

/* Always 1. */
INT OS_module_usage_get(void) FOUNDATION_USE_RESULT;

/* The process identifier. */
LONG OS_process_id_get(void) FOUNDATION_USE_RESULT;

/* The number of processors that the calling thread may run on; the number online where that cannot be
 * told or comes out as a multiple of 65536. */
INT OS_processor_count(void) FOUNDATION_USE_RESULT;

/* ---- Heap, memory and text ---- */

/* malloc. Returns the block, the caller's and aligned to 16 bytes, or null. */
LPVOID OS_alloc(uint64_t size) FOUNDATION_USE_RESULT FOUNDATION_BLOCK_OF(1);

/* realloc, with its rules: a null `block` allocates; a size of 0 releases `block` and gives null; a failure
 * gives null with `block` kept. Not for blocks that the memory manager records. */
LPVOID OS_realloc(LPVOID block, uint64_t size) FOUNDATION_USE_RESULT FOUNDATION_BLOCK_OF(2);

/* free; `block` may be null, and is none that the memory manager records. Always returns 0. */
INT OS_free(LPVOID block);

/* Copy `count` bytes between ranges that do not overlap. Returns `destination`. */
LPVOID OS_memcpy(LPVOID destination, const void *source, uint64_t count);

/* Fill `count` bytes with the low 8 bits of `fill`. Returns `destination`. */
LPVOID OS_memset(LPVOID destination, INT fill, uint64_t count);

/* Compare `count` bytes as unsigned values. Returns a negative, zero or positive value. */
INT OS_memcmp(const void *a, const void *b, uint64_t count) FOUNDATION_USE_RESULT;

/* strncpy: a shorter source is padded with zero bytes up to `count`; one of `count` characters or more
 * leaves `destination` without a terminator. Returns `destination`. */
CHAR *OS_strncpy(CHAR *destination, const CHAR *source, UINT count);

/* Move `*cursor` past the spaces and horizontal tabs it stands on. For this function and the next, declare
 * the cursor `const CHAR *cursor = text;` even over a text that may be changed: the address of a `CHAR *` is
 * an error in C++ and a warning in C. */
void gap_ignore(const CHAR **cursor) FOUNDATION_NONNULL(1);

/* Move `*cursor` to the next space or horizontal tab; it stays if it stands on one. Does NOT stop at the
 * terminator: the text must hold a space or tab behind the word. */
void non_gap_ignore(const CHAR **cursor) FOUNDATION_NONNULL(1);

/* vsprintf, every conversion included: no limit is applied, so `destination` must hold the longest possible
 * text, and must not be among the arguments. Returns the number of characters written without the terminator,
 * or a negative value. */
INT OS_sprintf(CHAR *destination, const CHAR *format, ...) FOUNDATION_NONNULL(1, 2)
    FOUNDATION_PRINTF_LIKE(2, 3);

/* Write one line, `title`, a colon, two spaces and `text`, to the standard error stream. Returns the
 * number of characters written, or a negative value. */
INT OS_message_box(const CHAR *title, const CHAR *text);

/* ---- Files ---- */

/* Create `path`, or truncate an existing file, for writing only; permission bits 0755 less the process's
 * file-creation mask. Returns a descriptor or -1. */
INT OS_create(const CHAR *path) FOUNDATION_USE_RESULT;

/* open with the platform's own flag values and permission bits. Returns a descriptor or -1. */
INT OS_open(const CHAR *path, INT flags, UINT permissions) FOUNDATION_USE_RESULT;

/* Close a descriptor. Returns 0 or -1. */
INT OS_close(INT descriptor);

/* Delete a file or an empty directory. Returns 0 or -1. */
LONG OS_delete(const CHAR *path);

/* Move the file position by `offset` bytes from `origin`: 0 start, 1 current position, 2 end. One step is
 * limited to the 32-bit range; the position returned is not. Returns it, or -1. */
LONG OS_seek(INT descriptor, INT offset, UINT origin);

/* One read of up to `count` bytes, below 2 GiB. Returns the bytes read, which may be fewer; 0 at the end
 * of the file; -1 on error. */
LONG OS_read(INT descriptor, LPVOID buffer, UINT count) FOUNDATION_USE_RESULT;

/* One write of up to `count` bytes, below 2 GiB. Returns the bytes written, which may be fewer, or -1. */
LONG OS_write(INT descriptor, const void *buffer, UINT count);

/* Truncate or extend an open file to `length` bytes. Returns 0 or -1 (a negative length included). */
LONG OS_size_change(INT descriptor, INT length);

/* ---- Identifiers ---- */

/* Read the first line of "/proc/sys/kernel/random/uuid", a fresh random identifier in its usual text form of
 * 36 characters, into `buffer`: at most `size` - 1 characters. The newline is kept where it fits, that is
 * from a `size` of 38 on; the rest of the `size` bytes is zero, and after any failure all of them. Returns 1
 * when the file was opened, also if nothing could be read from it, otherwise 0. */
ZT_BOOL readUUID(CHAR *buffer, UINT size);

/* The value of the first two characters of `text` as hexadecimal digits of either case. Conversion stops at
 * the first character that is not one: "7z" gives 7, "zz" 0. White space or a sign in front of a digit is
 * taken as by strtol, and a negative value wraps: "-1" gives 255. */
BYTE parseHexByteString(const CHAR *text) FOUNDATION_NONNULL(1) FOUNDATION_USE_RESULT;

/* Draw a random identifier from readUUID into the 16 bytes at `guid`, in the order of its text form. It is
 * copied as a text: every byte behind the first zero byte comes out as zero. So about one GUID in twenty is
 * cut short and one in 256 is all zero: where that matters, draw again. Returns 1, or 0 with `guid` unchanged
 * when the source cannot be opened. */
INT OS_create_guid(LPBYTE guid) FOUNDATION_NONNULL(1) FOUNDATION_USE_RESULT;

/* Write the 16 bytes at `guid` as 32 lower-case hexadecimal digits and a terminator to `text`, 33 bytes or
 * more. Returns 0, or -1, nothing written, when either is null. */
INT OS_guid_to_string(const BYTE *guid, CHAR *text);

/* ---- Threads: mode, critical sections, mutex identifiers, events ----
 *
 * Mode. The library has no link-time reference to any thread function. The first call of any function of this
 * section without _th or _emu looks twelve of them up by name in the process and fixes the mode for the life
 * of the process, whether or not the library is closed with dlclose and loaded again:
 *   threaded   all twelve were found; every object is a real one of the platform
 *   emulated   one was missing; every object is a plain flag, nothing blocks, nothing protects
 * From glibc 2.34 on every host is threaded. Before, a host is emulated unless, by that first call, the
 * thread library has been linked with the program or loaded into the global scope: one that a module brings
 * later, or in its own scope (RTLD_LOCAL), does not count, although the process then has threads.
 *
 * Names. Each operation exists three times with the same arguments and result: the plain name, which follows
 * the mode, and the names with _th (threaded) and _emu (emulated). Ordinary code uses the plain name alone;
 * the others are for tests, and an object made by one kind of name is never handed to another. A _th function
 * must not be called unless OS_threads_support has returned 1: before, it may jump to
 * address 0.
 *
 * Results. ZT_BOOL functions return 1 for success and 0 for failure; OS_mutex_ID_allocate gives 0 for success
 * and -4820 for failure. Out-parameters must not be null unless said otherwise.
 *
 * Null handles are a success that does nothing, but for OS_sync_cs_free, OS_mem_sync_cs_free and
 * OS_mutex_ID_free in threaded mode: these hand null to the platform's mutex destruction, which ends the
 * process (glibc). Free no null with them; OS_close_event takes it.
 *
 * Out of memory. Threaded creation of critical sections and mutex identifiers does not test its allocation
 * before the platform initialises the mutex, which glibc does not survive. Where the platform accepts the
 * null mutex, creation reports success with a null handle, which protects nothing: test the handle as well.
 *
 * Owners. Leave and release belong to the thread that entered or opened; from another thread they change
 * nothing. Objects are the library's until they are freed; free them once no thread is inside or waits. An
 * object that a thread was in or waited for at a fork stays taken in the child, where even the forking thread
 * cannot leave it, and closing an event can block: the child uses none of these, and makes new ones. Cancel
 * no thread that waits for an event: the event's guard stays locked, and every later set, reset or wait
 * blocks.
 *
 * Memory order. What a thread wrote before it left, released or set is seen by the thread that then enters,
 * opens or ends its wait. In emulated mode none of this section is for more than one thread. */

/* What OS_mutex_ID_allocate returns on failure. */
#define ZR_ERR_MUTEX_ID (-4820)

/* 1 in threaded mode, 0 in emulated mode; the same on every call. */
UINT OS_threads_support(void);

/* The platform's identifier of the calling thread (pthread_self), which a later thread may get again; always
 * 1 in emulated mode. */
uintptr_t OS_current_thread_id_get(void);
uintptr_t OS_current_thread_id_get_th(void);
uintptr_t OS_current_thread_id_get_emu(void);

/* Create a critical section whose record belongs to the memory tag `tag`: the caller serialises (memory.h),
 * and releasing the tag takes the record with it, so free the section before. `*section` receives it, or null
 * on failure. A threaded one is recursive: leave it as often as it was entered. */
ZT_BOOL OS_sync_cs_allocate(uint64_t tag, LPVOID *section) FOUNDATION_NONNULL(2);
ZT_BOOL OS_sync_cs_allocate_th(uint64_t tag, LPVOID *section) FOUNDATION_NONNULL(2);
ZT_BOOL OS_sync_cs_allocate_emu(uint64_t tag, LPVOID *section) FOUNDATION_NONNULL(2);

/* Free a critical section of OS_sync_cs_allocate under the tag it was made with; the caller serialises. Under
 * another tag its record stays, though a threaded one is destroyed. Always returns 1. */
ZT_BOOL OS_sync_cs_free(uint64_t tag, LPVOID section);
ZT_BOOL OS_sync_cs_free_th(uint64_t tag, LPVOID section);
ZT_BOOL OS_sync_cs_free_emu(uint64_t tag, LPVOID section);

/* OS_sync_cs_allocate with a record from the plain heap, outside every tag: for locks around the memory
 * manager itself. */
ZT_BOOL OS_mem_sync_cs_allocate(LPVOID *section) FOUNDATION_NONNULL(1);
ZT_BOOL OS_mem_sync_cs_allocate_th(LPVOID *section) FOUNDATION_NONNULL(1);
ZT_BOOL OS_mem_sync_cs_allocate_emu(LPVOID *section) FOUNDATION_NONNULL(1);

/* Free a critical section of OS_mem_sync_cs_allocate, not null in threaded mode. Always returns 1. */
ZT_BOOL OS_mem_sync_cs_free(LPVOID section);
ZT_BOOL OS_mem_sync_cs_free_th(LPVOID section);
ZT_BOOL OS_mem_sync_cs_free_emu(LPVOID section);

/* Enter a critical section of either kind; blocks until the calling thread owns it. Emulated: sets the
 * flag, which does not count. The platform's result is not reported. */
void OS_sync_cs_enter(LPVOID section);
void OS_sync_cs_enter_th(LPVOID section);
void OS_sync_cs_enter_emu(LPVOID section);

/* Leave a critical section once, in the thread that entered. Emulated: clears the flag, however often it was
 * entered. */
void OS_sync_cs_leave(LPVOID section);
void OS_sync_cs_leave_th(LPVOID section);
void OS_sync_cs_leave_emu(LPVOID section);

/* Create a mutex identifier. Returns 0; or -4820, `*identifier` null. */
ZT_ERRCOUNT OS_mutex_ID_allocate(LPVOID *identifier) FOUNDATION_NONNULL(1);
ZT_ERRCOUNT OS_mutex_ID_allocate_th(LPVOID *identifier) FOUNDATION_NONNULL(1);
ZT_ERRCOUNT OS_mutex_ID_allocate_emu(LPVOID *identifier) FOUNDATION_NONNULL(1);

/* Free a mutex identifier, not null in threaded mode. Always returns 0. */
ZT_ERRCOUNT OS_mutex_ID_free(LPVOID identifier);
ZT_ERRCOUNT OS_mutex_ID_free_th(LPVOID identifier);
ZT_ERRCOUNT OS_mutex_ID_free_emu(LPVOID identifier);

/* Take a mutex identifier; `*handle` receives what OS_mutex_release wants (null for a null identifier).
 * Threaded: blocks, and is recursive. Emulated: neither; an identifier already taken gives 0 at once.
 * `*handle` is unwritten when 0 is returned. `reserved` is ignored. */
ZT_BOOL OS_mutex_open(LPVOID identifier, LPVOID reserved, LPVOID *handle) FOUNDATION_NONNULL(3);
ZT_BOOL OS_mutex_open_th(LPVOID identifier, LPVOID reserved, LPVOID *handle) FOUNDATION_NONNULL(3);
ZT_BOOL OS_mutex_open_emu(LPVOID identifier, LPVOID reserved, LPVOID *handle) FOUNDATION_NONNULL(3);

/* Release a mutex identifier once, in the thread that opened it. Returns 0 when the calling thread does not
 * own it (emulated: when it is not taken), and then changes nothing. */
ZT_BOOL OS_mutex_release(LPVOID handle);
ZT_BOOL OS_mutex_release_th(LPVOID handle);
ZT_BOOL OS_mutex_release_emu(LPVOID handle);

/* Create a manual-reset event: signalled when `initial_state` is not 0, and from each set to the next reset.
 * Waiting never changes it. `*event` receives it, or null on failure; a null `event` gives 0. `reserved` is
 * ignored. */
ZT_BOOL OS_create_event(LPVOID *event, UINT initial_state, LPVOID reserved);
ZT_BOOL OS_create_event_th(LPVOID *event, UINT initial_state, LPVOID reserved);
ZT_BOOL OS_create_event_emu(LPVOID *event, UINT initial_state, LPVOID reserved);

/* Free an event; null is accepted in both modes. Always returns 1. */
ZT_BOOL OS_close_event(LPVOID event);
ZT_BOOL OS_close_event_th(LPVOID event);
ZT_BOOL OS_close_event_emu(LPVOID event);

/* Signal an event: whoever waits for it, or comes to wait before a reset, goes on. A thread that waits is
 * surely released only if no reset follows before it has run: one that wakes up to a reset event goes on
 * waiting. Returns 0 when the platform's wake-up failed; the state has changed all the same. */
ZT_BOOL OS_set_event(LPVOID event);
ZT_BOOL OS_set_event_th(LPVOID event);
ZT_BOOL OS_set_event_emu(LPVOID event);

/* End an event's signal. Wakes the waiting threads too, which find no signal and go on waiting. Results as
 * for OS_set_event. */
ZT_BOOL OS_reset_event(LPVOID event);
ZT_BOOL OS_reset_event_th(LPVOID event);
ZT_BOOL OS_reset_event_emu(LPVOID event);

/* Wait, as long as it takes, until an event is signalled. Returns 1; 0 when the platform's wait failed.
 * Emulated: never waits; returns 0 when the event is not signalled. */
ZT_BOOL OS_wait_for_event(LPVOID event);
ZT_BOOL OS_wait_for_event_th(LPVOID event);
ZT_BOOL OS_wait_for_event_emu(LPVOID event);

/* ---- Without effect on this platform ---- */

/* Discards its text. The library calls it through the dynamic symbol, so a host that exports a function of
 * this name receives the library's report in its place. */
void OS_debug_output(const CHAR *format, ...) FOUNDATION_PRINTF_LIKE(1, 2);

/* Does nothing: this platform has no message queue to serve. */
void OS_message_queue_refresh(void);

/* Always 0. */
INT OS_sys_gctrl_init(void);

/* Report the sizes of the base types through OS_debug_output, a line each. Meant for the library itself. */
void _OS_sys_info_print(void);

#ifdef __cplusplus
}
#endif

#include "foundation/attributes_end.h"

#endif
