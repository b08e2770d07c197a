// Inputs shared by the instruction-count drivers (ours and OpenCV's): the
// same planes, matches, keypoints and matrix for a given size, made
// cheaply (the set-up runs under the emulator too) and deterministically.
#ifndef TOCRA_BENCH_ARM_COST_INPUTS_H
#define TOCRA_BENCH_ARM_COST_INPUTS_H

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace cost {

constexpr int Pitch128(int v) { return (v + 127) & ~127; }

// A textured plane of height rows of `stride` bytes: one pseudo-random
// line (a smoothed random walk, so that neighbours are alike as in a
// photograph) of which every row is a shifted copy.
inline std::vector<uint8_t> Plane(int stride, int height, uint32_t seed) {
    const int period = 4093;  // prime: rows do not repeat along a column
    std::vector<uint8_t> line(static_cast<size_t>(stride) + period);
    uint32_t s = seed * 2654435761u + 12345u;
    int v = 128;
    for (uint8_t& b : line) {
        s ^= s << 13;
        s ^= s >> 17;
        s ^= s << 5;
        v += static_cast<int>(s % 9) - 4;
        v = v < 16 ? 16 : (v > 239 ? 239 : v);
        b = static_cast<uint8_t>(v + (s >> 28));
    }
    std::vector<uint8_t> p(static_cast<size_t>(stride) * height);
    for (int y = 0; y < height; ++y) {
        memcpy(p.data() + static_cast<size_t>(y) * stride, line.data() + (static_cast<size_t>(y) * 37) % period,
               stride);
    }
    return p;
}

// ---------------------------------------------------------------------------
// RANSAC: 2,000 matches on a quarter-size frame (1000 x 750), noise of
// +-0.5 pixel, 30% displaced by 20 to 200 pixels; the second pass works on
// full-frame coordinates (scale 4).
// ---------------------------------------------------------------------------
constexpr int kMatches = 2000;
constexpr float kMatchScale = 4.0f;

struct Matches {
    std::vector<float> ref, match;  // interleaved x, y
};

inline Matches RansacMatches() {
    static const double truth[9] = {1.02, 0.015, 12.5, -0.012, 0.99, -7.25, 2.0e-5, -1.5e-5, 1.0};
    Matches r;
    uint32_t s = 12345u;
    auto next = [&s] { return s = s * 1664525u + 1013904223u; };
    auto uni = [&](double lo, double hi) { return lo + (hi - lo) * (next() >> 8) / 16777216.0; };
    for (int i = 0; i < kMatches; ++i) {
        const double x = uni(0, 999), y = uni(0, 749);
        const double w = truth[6] * x + truth[7] * y + truth[8];
        double mx = (truth[0] * x + truth[1] * y + truth[2]) / w;
        double my = (truth[3] * x + truth[4] * y + truth[5]) / w;
        if (next() % 100 < 30) {
            const double d = uni(20, 200), a = uni(0, 6.2831853);
            mx += d * std::cos(a);
            my += d * std::sin(a);
        } else {
            mx += uni(-0.5, 0.5);
            my += uni(-0.5, 0.5);
        }
        r.ref.push_back(static_cast<float>(x));
        r.ref.push_back(static_cast<float>(y));
        r.match.push_back(static_cast<float>(mx));
        r.match.push_back(static_cast<float>(my));
    }
    return r;
}

// ---------------------------------------------------------------------------
// Keypoints 40 pixels or more inside a width x height frame, in 1/64 pixel
// (x, y, one spare word, as the pipeline's records).
// ---------------------------------------------------------------------------
struct Keypoint {
    int32_t x, y, spare;
};

inline std::vector<Keypoint> Keypoints(int count, int width, int height) {
    std::vector<Keypoint> v(count);
    uint32_t s = 777u;
    auto next = [&s] { return s = s * 1664525u + 1013904223u; };
    for (Keypoint& kp : v) {
        kp.x = static_cast<int32_t>(40 * 64 + next() % static_cast<uint32_t>((width - 80) * 64));
        kp.y = static_cast<int32_t>(40 * 64 + next() % static_cast<uint32_t>((height - 80) * 64));
        kp.spare = 0;
    }
    return v;
}

// ---------------------------------------------------------------------------
// Warp: reference point -> frame point, 1 degree about the centre, a few
// pixels of shift, slight perspective.
// ---------------------------------------------------------------------------
inline void WarpMatrix(int width, int height, float* h) {
    const double t = 1.0 * M_PI / 180.0, c = std::cos(t), s = std::sin(t);
    const double cx = width / 2.0, cy = height / 2.0;
    const double m[9] = {c, -s, cx - c * cx + s * cy + 12, s, c, cy - s * cx - c * cy - 8, 2e-7, -1e-7, 1};
    for (int i = 0; i < 9; ++i) h[i] = static_cast<float>(m[i]);
}

// Registration: 2,000 keypoint matches over the frame through the warp
// matrix (+-0.3 pixel of noise), every fourth one matched to a wrong
// keypoint. refKeys[trainIdx[i]] matches matchKeys[queryIdx[i]].
struct RegistrationMatches {
    std::vector<Keypoint> refKeys, matchKeys;
    std::vector<uint16_t> queryIdx, trainIdx;
};

inline RegistrationMatches RegistrationPairs(int width, int height, const float* h) {
    RegistrationMatches m;
    const int n = 2000;
    uint32_t seed = 7;
    auto rnd = [&seed]() {
        seed = seed * 1664525u + 1013904223u;
        return static_cast<double>(seed >> 8) / 16777216.0;
    };
    for (int i = 0; i < n; ++i) {
        const double x = 100 + rnd() * (width - 200), y = 100 + rnd() * (height - 200);
        const double w = h[6] * x + h[7] * y + 1;
        const double u = (h[0] * x + h[1] * y + h[2]) / w, v = (h[3] * x + h[4] * y + h[5]) / w;
        m.refKeys.push_back({static_cast<int32_t>(x * 64), static_cast<int32_t>(y * 64), 0});
        m.matchKeys.push_back(
            {static_cast<int32_t>(u * 64 + (rnd() - 0.5) * 40), static_cast<int32_t>(v * 64 + (rnd() - 0.5) * 40), 0});
        m.trainIdx.push_back(static_cast<uint16_t>(i));
        m.queryIdx.push_back(static_cast<uint16_t>(i % 4 == 1 ? (i * 7 + 1000) % n : i));
    }
    return m;
}

// Box filter radius (the window is 2R + 1 square).
constexpr int kBoxRadius = 40;
// Pairs of the normal-matrix kernel: the inliers of a typical refit.
constexpr int kDltPairs = 1400;

}  // namespace cost

#endif
