#include "frame/platform.h"

#include <cstdint>

#if defined(__arm__) && !defined(__aarch64__)
#include <unistd.h>
#if defined(__ANDROID__)
#include <sys/cachectl.h>
#else
#include <sys/syscall.h>
#endif
#endif

extern "C" void platform_cacheflush(const void* start, const void* end) {
    if (start == nullptr || end <= start) return;
#if defined(__aarch64__)
    uint64_t ctr;
    asm volatile("mrs %0, ctr_el0" : "=r"(ctr));
    const uintptr_t line = uintptr_t{4} << ((ctr >> 16) & 0xF);
    uintptr_t p = reinterpret_cast<uintptr_t>(start) & ~(line - 1);
    const uintptr_t stop = reinterpret_cast<uintptr_t>(end);
    for (; p < stop; p += line) asm volatile("dc cvac, %0" : : "r"(p) : "memory");
    asm volatile("dsb sy" : : : "memory");
#elif defined(__arm__)
#if defined(__ANDROID__)
    cacheflush(reinterpret_cast<long>(start), reinterpret_cast<long>(end), 0);
#else
    syscall(__ARM_NR_cacheflush, reinterpret_cast<long>(start), reinterpret_cast<long>(end), 0L);
#endif
#else
    // Coherent caches: nothing to write back.
    (void)start;
    (void)end;
#endif
}
