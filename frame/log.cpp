#include "frame/log.h"

#include <cstdio>

namespace tocra {

Stamp Now() {
    Stamp s;
    gettimeofday(&s.tv, nullptr);
    return s;
}

int ElapsedMs(const Stamp& start, const Stamp& end) {
    return static_cast<int>((end.tv.tv_sec - start.tv.tv_sec) * 1000 + (end.tv.tv_usec - start.tv.tv_usec) / 1000);
}

void PrintElapsed(const char* name, const Stamp& start) { printf("%28s time:%d ms\n", name, ElapsedMs(start, Now())); }

}  // namespace tocra
