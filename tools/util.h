// Small helpers shared by the demo's files.
#ifndef TOCRA_DEMO_UTIL_H
#define TOCRA_DEMO_UTIL_H

#include <chrono>
#include <string>

namespace demo {

// printf into a std::string.
std::string Format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// Milliseconds of wall-clock time since start.
inline double MsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace demo

#endif
