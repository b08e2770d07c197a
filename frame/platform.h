// The one place that knows which processor we run on.
#ifndef BRIMVEL_FRAME_PLATFORM_H
#define BRIMVEL_FRAME_PLATFORM_H

#include <pthread.h>
#include <semaphore.h>
#include <stddef.h>

extern "C" {
// Writes the data cache back over [start, end) so that other hardware sees
// what the processor wrote: the cacheflush call on 32-bit ARM, a clean by
// address range on aarch64, nothing where the caches are coherent. Kept in a
// file of its own so that a test can link its own recorder in its place.
void platform_cacheflush(const void* start, const void* end);

// Starts a thread: pthread_create with the same arguments and result. Every
// thread the library starts goes through here. Kept in a file of its own so
// that a test can link a version that fails chosen starts.
int platform_thread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*fn)(void*), void* arg);
// pthread_attr_init and sem_init, the other two steps of starting the worker
// pool, for the same reason (same file as the thread start).
int platform_thread_attr_init(pthread_attr_t* attr);
int platform_sem_init(sem_t* sem, int shared, unsigned value);

// The C library's allocator: malloc, calloc, realloc and free with the same
// arguments and results. Every block the library allocates itself (iMalloc
// included) comes from here and goes back here, so that a test can link a
// version that fails chosen allocations and sees what is not given back.
// (Objects made with new are the C++ runtime's; tests count those through
// operator new.)
void* platform_malloc(size_t size);
void* platform_calloc(size_t count, size_t size);
void* platform_realloc(void* ptr, size_t size);
void platform_free(void* ptr);
}

#endif
