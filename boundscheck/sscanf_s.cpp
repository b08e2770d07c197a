// sscanf_s and vsscanf_s: argument checks, then the scan engine over the
// whole string.
#include <cstdarg>
#include <cstring>

#include "brimvel_tocra.h"

extern "C" int vsscanf_s(const char* str, const char* format, va_list args) {
    if (str == nullptr || format == nullptr) return -1;
    const size_t len = strlen(str);
    if (len < 1) return -1;
    const int result = scan_input_s(str, len, format, args);
    return result < 0 ? -1 : result;
}

extern "C" int sscanf_s(const char* str, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = vsscanf_s(str, format, args);
    va_end(args);
    return result;
}
