// Whether a sanitizer instruments this program, and functions that are to run without one.
#pragma once

#if defined(__has_feature)
#define HAS_SANITIZER_FEATURE(sanitizer) __has_feature(sanitizer)
#else
#define HAS_SANITIZER_FEATURE(sanitizer) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || HAS_SANITIZER_FEATURE(address_sanitizer)
#define BUILT_FOR_ADDRESS_SANITIZER 1
#else
#define BUILT_FOR_ADDRESS_SANITIZER 0
#endif

#if defined(__SANITIZE_THREAD__) || HAS_SANITIZER_FEATURE(thread_sanitizer)
#define BUILT_FOR_THREAD_SANITIZER 1
#else
#define BUILT_FOR_THREAD_SANITIZER 0
#endif

// For functions in front of the C library's, which a sanitizer calls before it has set itself up: they run
// without its instrumentation.
#if defined(__clang__)
#define BEFORE_SANITIZER __attribute__((disable_sanitizer_instrumentation))
#else
#define BEFORE_SANITIZER __attribute__((no_sanitize_address, no_sanitize_thread, no_sanitize_undefined))
#endif
