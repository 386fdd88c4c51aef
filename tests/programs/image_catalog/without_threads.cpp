// Linked into the catalogue's host program: the library does not find one of the thread functions, so that
// the program has emulated synchronisation objects, and must do its work on the one thread it has.

#include "support/sanitizers.h"
#include "support/thread_functions.h"

#include <pthread.h>
#include <stdlib.h>

namespace {

lookup_trace lookups;
const bool is_hidden = (lookups.hide(thread_function::COND_INIT), true);

}  // namespace

// Sanitizers start a thread of their own.
#if !BUILT_FOR_ADDRESS_SANITIZER && !BUILT_FOR_THREAD_SANITIZER
int pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) noexcept
{
    abort();
}
#endif
