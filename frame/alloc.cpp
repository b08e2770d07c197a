#include <cstdlib>

#include "frame/platform.h"

extern "C" void* platform_malloc(size_t size) { return malloc(size); }

extern "C" void* platform_calloc(size_t count, size_t size) { return calloc(count, size); }

extern "C" void* platform_realloc(void* ptr, size_t size) { return realloc(ptr, size); }

extern "C" void platform_free(void* ptr) { free(ptr); }
