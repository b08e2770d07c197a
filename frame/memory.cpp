#include <cstdlib>

#include "brimvel_tocra.h"

// The function name and line are for diagnostics at the call site only.
extern "C" void* iMalloc(size_t size, const char* /*func*/, int /*line*/) { return malloc(size); }

extern "C" void iFree(void* ptr, const char* /*func*/, int /*line*/) { free(ptr); }
