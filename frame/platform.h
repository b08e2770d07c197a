// The one place that knows which processor we run on.
#ifndef BRIMVEL_FRAME_PLATFORM_H
#define BRIMVEL_FRAME_PLATFORM_H

#include <pthread.h>

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
}

#endif
