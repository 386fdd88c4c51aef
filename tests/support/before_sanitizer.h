// For functions in front of the C library's, which a sanitizer calls before it has set itself up: they run
// without its instrumentation.
#pragma once

#if defined(__clang__)
#define BEFORE_SANITIZER __attribute__((disable_sanitizer_instrumentation))
#else
#define BEFORE_SANITIZER __attribute__((no_sanitize_address, no_sanitize_thread, no_sanitize_undefined))
#endif
