// Plausibility of a frame's homography and its registration area: the
// even-aligned rectangle of the reference frame that the warped frame covers
// completely. Single precision, with 1 in place of h8 throughout.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "brimvel_tocra.h"
#include "frame/log.h"
#include "frame/numeric.h"

using tocra::TruncSatToInt32;

namespace {

constexpr int kMaxShrinkSteps = 50;
constexpr int kMaxMotion = 300;

const char kIncorrectH[] = "IMG_REGISTRATION: Incorrect h!";
const char kAreaError[] = "IMG_REGISTRATION: calculate motion area error!";
const char kNoOverlap[] = "IMG_REGISTRATION: calculate motion area error";
const char kTooLarge[] = "IMG_REGISTRATION: the global motion between two frames is too large!";

// Left and top sides round half up (in double), right and bottom sides
// truncate.
inline int32_t RoundHalfUp(float v) { return TruncSatToInt32(static_cast<double>(v) + 0.5); }

struct Point {
    float x, y;
};

// Forward mapping through H, denominator h6 x + h7 y + 1.
inline Point Forward(const float* H, int x, int y) {
    const float fx = static_cast<float>(x), fy = static_cast<float>(y);
    const float d = H[6] * fx + H[7] * fy + 1.0f;
    return {(H[0] * fx + H[1] * fy + H[2]) / d, (H[3] * fx + H[4] * fy + H[5]) / d};
}

// The covered interval [lo, hi] of four corner coordinates: the middle two.
bool MiddleInterval(int32_t a, int32_t b, int32_t c, int32_t d, int64_t* lo, int64_t* hi) {
    int32_t v[4] = {a, b, c, d};
    std::sort(v, v + 4);
    *lo = v[1];
    *hi = v[2];
    return v[1] != v[2];
}

// Intersection of [lo, hi] with [0, size - 1]; false when they do not overlap.
bool Overlap(int64_t lo, int64_t hi, int size, int64_t* start, int64_t* length) {
    int64_t s[4] = {0, static_cast<int64_t>(size) - 1, lo, hi};
    std::sort(s, s + 4);
    if ((hi - lo + 1) + size <= s[3] - s[0] + 1) return false;
    *start = s[1];
    *length = s[2] - s[1] + 1;
    return true;
}

// An odd start moves right to the next even column, keeping the end; the
// length is cut to a multiple of 8.
void AlignEven(int64_t* start, int64_t length, int64_t* aligned) {
    if (*start & 1) {
        *aligned = (length - 1) & ~int64_t{7};
        const int64_t d = length - *aligned;
        *start += (d & 1) ? d : d - 1;
    } else {
        *aligned = length & ~int64_t{7};
    }
}

}  // namespace

extern "C" int MotionEstimation(float* H, int W, int Hh, tagST_REGISTRATION_AREA* area) {
    // Check of our own: no matrix to read or area to write.
    if (H == nullptr || area == nullptr) {
        TOCRA_LOGE("%s", kIncorrectH);
        return TOCRA_REG_REJECTED;
    }
    const float h0 = H[0], h1 = H[1], h2 = H[2], h3 = H[3], h4 = H[4], h5 = H[5], h6 = H[6], h7 = H[7];
    const float h8 = 1.0f;

    // 1. Adjugate inverse; i02 takes h7 where the textbook cofactor has h5,
    // which the area and thresholds were tuned with. A singular matrix gives
    // an infinite r and NaN entries (0 x inf); they go through the steps
    // below: NaN fails every comparison and converts to 0, so an all-zero
    // matrix ends with its four corners at 0 in step 4.
    const float det = h0 * (h4 * h8 - h5 * h7) - h3 * (h1 * h8 - h2 * h7) + h6 * (h1 * h5 - h2 * h4);
    const float r = 1.0f / det;
    const float i00 = (h4 * h8 - h5 * h7) * r, i01 = -(h1 * h8 - h2 * h7) * r, i02 = (h1 * h7 - h2 * h4) * r;
    const float i10 = -(h3 * h8 - h5 * h6) * r, i11 = (h0 * h8 - h2 * h6) * r, i12 = -(h0 * h5 - h2 * h3) * r;
    const float i20 = (h3 * h7 - h4 * h6) * r, i21 = -(h0 * h7 - h1 * h6) * r;

    // 2. Perspective check (a NaN passes it, as it fails the comparison).
    if (std::fabs(static_cast<double>(i20)) > 0.0001 || std::fabs(static_cast<double>(i21)) > 0.0001) {
        TOCRA_LOGE("%s", kIncorrectH);
        return TOCRA_REG_REJECTED;
    }

    // 3. Frame corners through the inverse.
    const int cx[4] = {0, W - 1, 0, W - 1}, cy[4] = {0, 0, Hh - 1, Hh - 1};
    int32_t X[4], Y[4];
    for (int k = 0; k < 4; ++k) {
        const float x = static_cast<float>(cx[k]), y = static_cast<float>(cy[k]);
        const float d = i20 * x + i21 * y + 1.0f;
        const float mx = (i00 * x + i01 * y + i02) / d;
        const float my = (i10 * x + i11 * y + i12) / d;
        X[k] = (k == 0 || k == 2) ? RoundHalfUp(mx) : TruncSatToInt32(mx);
        Y[k] = (k == 0 || k == 1) ? RoundHalfUp(my) : TruncSatToInt32(my);
    }

    // 4. Covered intervals.
    int64_t loX, hiX, loY, hiY;
    if (!MiddleInterval(X[0], X[1], X[2], X[3], &loX, &hiX) || !MiddleInterval(Y[0], Y[1], Y[2], Y[3], &loY, &hiY)) {
        TOCRA_LOGE("%s", kAreaError);
        return TOCRA_REG_REJECTED;
    }

    // 5. Intersection with the frame, in 64 bits: a corner saturated at the
    // int range would overflow the 32-bit sums (hi - lo + 1) + W.
    int64_t x, w, y, h;
    if (!Overlap(loX, hiX, W, &x, &w) || !Overlap(loY, hiY, Hh, &y, &h)) {
        TOCRA_LOGE("%s", kNoOverlap);
        return TOCRA_REG_REJECTED;
    }

    // 6. Motion limit.
    if (W - w > kMaxMotion || Hh - h > kMaxMotion) {
        TOCRA_LOGE("%s", kTooLarge);
        return TOCRA_REG_REJECTED;
    }

    // 7. Shrink until the area's corners land inside the other frame. One
    // step counter for passes a and b, another for c and d (entering d is a
    // step); the 50th step fails whatever it found.
    int steps = 0;
    auto step = [&steps]() { return ++steps >= kMaxShrinkSteps; };
    for (;;) {  // a: top-left corner
        const Point p = Forward(H, static_cast<int>(x), static_cast<int>(y));
        if (p.x < 0) ++x, --w;
        if (p.y < 0) ++y, --h;
        if (step()) break;
        if (p.x >= 0 && p.y >= 0) break;
    }
    if (steps < kMaxShrinkSteps) {
        for (;;) {  // b: left side's bottom, top side's right end
            const float px = Forward(H, static_cast<int>(x), static_cast<int>(y + h)).x;
            const float py = Forward(H, static_cast<int>(x + w), static_cast<int>(y)).y;
            if (px < 0) ++x, --w;
            if (py < 0) ++y, --h;
            if (step()) break;
            if (px >= 0 && py >= 0) break;
        }
    }
    if (steps >= kMaxShrinkSteps) {
        TOCRA_LOGE("%s", kAreaError);
        return TOCRA_REG_REJECTED;
    }
    steps = 0;
    const float maxX = static_cast<float>(W - 2), maxY = static_cast<float>(Hh - 2);
    for (;;) {  // c: bottom-right corner
        const Point p = Forward(H, static_cast<int>(x + w), static_cast<int>(y + h));
        if (p.x > maxX) --w;
        if (p.y > maxY) --h;
        if (step()) break;
        if (p.x <= maxX && p.y <= maxY) break;
    }
    if (steps < kMaxShrinkSteps && !step()) {
        for (;;) {  // d: right side's top, bottom side's left end
            const float px = Forward(H, static_cast<int>(x + w), static_cast<int>(y)).x;
            const float py = Forward(H, static_cast<int>(x), static_cast<int>(y + h)).y;
            if (px > maxX) --w;
            if (py > maxY) --h;
            if (step()) break;
            if (px <= maxX && py <= maxY) break;
        }
    }
    if (steps >= kMaxShrinkSteps) {
        TOCRA_LOGE("%s", kAreaError);
        return TOCRA_REG_REJECTED;
    }

    // 8. Clamp to the frame.
    if (x + w > W) w = W - x;
    if (y + h > Hh) h = Hh - y;

    // 9. Even start, length a multiple of 8.
    int64_t w8, hh8;
    AlignEven(&x, w, &w8);
    AlignEven(&y, h, &hh8);

    // 10. Accept only a usable overlap.
    if (y < Hh && x < W && w8 > (W >> 1) && hh8 > (Hh >> 1)) {
        area->x = static_cast<int32_t>(x);
        area->y = static_cast<int32_t>(y);
        area->width = static_cast<int32_t>(w8);
        area->height = static_cast<int32_t>(hh8);
        return TOCRA_OK;
    }
    TOCRA_LOGE("%s", kAreaError);
    return TOCRA_REG_REJECTED;
}
