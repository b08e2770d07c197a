// MotionEstimation on arbitrary matrices and frame sizes: it must return,
// and an accepted area is inside the frame, even-aligned, a multiple of 8,
// and more than half the frame.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "brimvel_tocra.h"

extern "C" int __android_log_print(int, const char*, const char*, ...) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 9 * sizeof(float) + 4) return 0;
    float H[9];
    memcpy(H, data, sizeof H);
    const int W = 2 + (data[36] | (data[37] << 8)) % 4095;
    const int Hh = 2 + (data[38] | (data[39] << 8)) % 4095;
    tagST_REGISTRATION_AREA area{-1, -1, -1, -1};
    const int ret = MotionEstimation(H, W, Hh, &area);
    if (ret == 0) {
        if (area.x < 0 || area.y < 0 || area.x % 2 != 0 || area.y % 2 != 0) abort();
        if (area.width % 8 != 0 || area.height % 8 != 0) abort();
        if (area.width <= W / 2 || area.height <= Hh / 2) abort();
        if (area.x + area.width > W || area.y + area.height > Hh) abort();
    } else if (ret != 3 || area.x != -1) {
        abort();
    }
    return 0;
}
