#include "brimvel_tocra.h"
#include "frame/platform.h"

// The function name and line are for diagnostics at the call site only.
extern "C" void* iMalloc(size_t size, const char* /*func*/, int /*line*/) { return platform_malloc(size); }

extern "C" void iFree(void* ptr, const char* /*func*/, int /*line*/) { platform_free(ptr); }
