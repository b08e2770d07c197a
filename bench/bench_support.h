// Shared inputs for the benchmarks: deterministic planes at camera sizes.
#ifndef TOCRA_BENCH_SUPPORT_H
#define TOCRA_BENCH_SUPPORT_H

#include <cstdint>
#include <vector>

namespace tocra_bench {

// 12-megapixel frame and its half-size planes.
constexpr int kWidth = 4000;
constexpr int kHeight = 3000;
constexpr int kHalfWidth = 2000;
constexpr int kHalfHeight = 1500;

// A smooth, textured plane (not white noise, so that histograms and
// descriptors see camera-like content), stride >= width.
inline std::vector<uint8_t> TexturedPlane([[maybe_unused]] int width, int height, int stride, uint32_t seed = 1) {
    std::vector<uint8_t> p(static_cast<size_t>(stride) * height);
    uint32_t s = seed * 2654435761u + 12345u;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < stride; ++x) {
            s ^= s << 13;
            s ^= s >> 17;
            s ^= s << 5;
            const int base = ((x * 7 + y * 3) >> 4) + ((x ^ y) & 63);
            p[static_cast<size_t>(y) * stride + x] = static_cast<uint8_t>((base + (s & 15)) & 255);
        }
    }
    return p;
}

}  // namespace tocra_bench

#endif
