/* Heap-allocation counter, preloaded into the program under measurement
 * (LD_PRELOAD). Every allocating call goes to glibc's own allocator and
 * bumps one counter. The counter is read from outside, through the
 * process's memory (process_vm_readv), so the program is never interrupted
 * by the measurement. */
#define _GNU_SOURCE
#include <stdatomic.h>
#include <stddef.h>

extern void* __libc_malloc(size_t n);
extern void* __libc_calloc(size_t n, size_t size);
extern void* __libc_realloc(void* p, size_t n);
extern void* __libc_memalign(size_t align, size_t n);

/* Calls that allocated (malloc, calloc, realloc, the aligned ones). */
__attribute__((visibility("default"))) _Atomic unsigned long tav_malloc_count_calls;

static void count(void) {
    atomic_fetch_add_explicit(&tav_malloc_count_calls, 1, memory_order_relaxed);
}

void* malloc(size_t n) {
    count();
    return __libc_malloc(n);
}

void* calloc(size_t n, size_t size) {
    count();
    return __libc_calloc(n, size);
}

void* realloc(void* p, size_t n) {
    count();
    return __libc_realloc(p, n);
}

void* memalign(size_t align, size_t n) {
    count();
    return __libc_memalign(align, n);
}

void* aligned_alloc(size_t align, size_t n) {
    count();
    return __libc_memalign(align, n);
}

int posix_memalign(void** out, size_t align, size_t n) {
    count();
    void* p = __libc_memalign(align, n);
    if (p == NULL) {
        return 12; /* ENOMEM */
    }
    *out = p;
    return 0;
}
