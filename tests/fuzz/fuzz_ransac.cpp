// RansacEstimation, then the all-pairs refit and motion estimation, on
// arbitrary point sets and parameters, with scratch buffers exactly as large
// as the callers provide: no read or write outside them, no endless loop,
// survivors compacted inside the pair count.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "brimvel_tocra.h"

extern "C" int __android_log_print(int, const char*, const char*, ...) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    // At most the budget the library's callers give (100); a larger one only
    // multiplies the time of each input.
    const int maxIters = data[0] % 101;
    const float threshold = static_cast<float>(data[1]) * 2.0f;
    const float confidence = static_cast<float>(data[2]) / 255.0f;
    const bool raw = data[3] & 1;  // raw float bits, or coordinates in a 640x480 frame
    data += 8;
    size -= 8;
    const int n = static_cast<int>(size / 8);
    if (n == 0 || n > 512) return 0;
    std::vector<float> ref(2 * static_cast<size_t>(n)), match(2 * static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        if (raw) {
            // Any float, infinities and NaN included; subnormal inputs are
            // taken as 0 (no camera coordinate is one, and they only make
            // every operation a hundred times slower).
            memcpy(&ref[2 * i], data + 8 * i, 4);
            memcpy(&match[2 * i], data + 8 * i + 4, 4);
            if (std::fpclassify(ref[2 * i]) == FP_SUBNORMAL) ref[2 * i] = 0;
            if (std::fpclassify(match[2 * i]) == FP_SUBNORMAL) match[2 * i] = 0;
            ref[2 * i + 1] = match[2 * i];
            match[2 * i + 1] = ref[2 * i];
        } else {
            const uint8_t* d = data + 8 * i;
            ref[2 * i] = (d[0] | (d[1] << 8)) % 640 + d[6] / 256.0f;
            ref[2 * i + 1] = (d[2] | (d[3] << 8)) % 480;
            match[2 * i] = ref[2 * i] + static_cast<int8_t>(d[4]);
            match[2 * i + 1] = ref[2 * i + 1] + static_cast<int8_t>(d[5]) + d[7] / 256.0f;
        }
    }
    tagST_MATCH_PAIRS pairs{ref.data(), match.data(), n};
    tagRANSAC_PARAMS params{maxIters, threshold, confidence};
    std::vector<unsigned char> scratch(80 * static_cast<size_t>(n));
    float H[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    const int ret = RansacEstimation(&pairs, H, &params, scratch.data());
    if (ret == 0 && (pairs.pointNum < 0 || pairs.pointNum > (n < 4 ? 4 : n))) abort();
    if (ret != 0 && pairs.pointNum != n) abort();
    if (pairs.pointNum >= 5 && pairs.pointNum <= n) {
        std::vector<unsigned char> refit(std::max<size_t>(640 * 100, static_cast<size_t>(pairs.pointNum) * 176 + 224));
        float G[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0};
        RefineHomography(&pairs, G, refit.data());
        tagST_REGISTRATION_AREA area{};
        if (MotionEstimation(G, 640, 480, &area) == 0 && (area.x + area.width > 640 || area.y + area.height > 480))
            abort();
    }
    return 0;
}
