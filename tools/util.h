// The stage timings of the demo.
#ifndef TOCRA_DEMO_UTIL_H
#define TOCRA_DEMO_UTIL_H

#include <chrono>

namespace demo {

// Milliseconds of wall-clock time since start.
inline double MsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace demo

#endif
