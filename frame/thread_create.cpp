#include "frame/platform.h"

extern "C" int platform_thread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*fn)(void*), void* arg) {
    return pthread_create(thread, attr, fn, arg);
}
