#include "frame/platform.h"

extern "C" int platform_thread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*fn)(void*), void* arg) {
    return pthread_create(thread, attr, fn, arg);
}

extern "C" int platform_thread_attr_init(pthread_attr_t* attr) { return pthread_attr_init(attr); }

extern "C" int platform_sem_init(sem_t* sem, int shared, unsigned value) { return sem_init(sem, shared, value); }
