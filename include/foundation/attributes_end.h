/* The end of what attributes_begin.h began. */
#undef FOUNDATION_NONNULL
#undef FOUNDATION_USE_RESULT
#undef FOUNDATION_BLOCK_OF
#undef FOUNDATION_PRINTF_LIKE
