#include "util.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace demo {

std::string Format(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    va_list copy;
    va_copy(copy, ap);
    const int n = vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    std::vector<char> buf(n > 0 ? n + 1 : 1);
    vsnprintf(buf.data(), buf.size(), fmt, ap);
    va_end(ap);
    return std::string(buf.data());
}

}  // namespace demo
