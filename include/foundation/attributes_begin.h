/* For the public headers alone: what their prototypes promise the compiler beyond their types. Each header
 * includes this file at its head and attributes_end.h, which takes the macros back, at its end.
 *
 * FOUNDATION_NONNULL stands only for parameters that no unit of the library tests and that the header
 * requires to be valid: a compiler may drop tests for null behind such a call, and within the function.
 * There is no `malloc`: it finds no mistake, and lets a compiler drop what is stored in a block of the memory
 * manager before its tag is released, though a host's own `free` would find it there. */
#if defined(__GNUC__)
#define FOUNDATION_NONNULL(...) __attribute__((nonnull(__VA_ARGS__)))
#define FOUNDATION_USE_RESULT __attribute__((warn_unused_result))
#define FOUNDATION_BLOCK_OF(size_index) __attribute__((alloc_size(size_index)))
#define FOUNDATION_PRINTF_LIKE(format_index, first_argument)                                                 \
    __attribute__((format(printf, format_index, first_argument)))
#else
#define FOUNDATION_NONNULL(...)
#define FOUNDATION_USE_RESULT
#define FOUNDATION_BLOCK_OF(size_index)
#define FOUNDATION_PRINTF_LIKE(format_index, first_argument)
#endif
