// A pipeline's side of a registration: a reference frame, frames made from
// it by known homographies, keypoints and matches, all in buffers behind a
// handle table, and the records that point at them.
#ifndef TOCRA_TESTS_REGISTRATION_SCENE_H
#define TOCRA_TESTS_REGISTRATION_SCENE_H

#include <cmath>
#include <vector>

#include "support/test_support.h"

namespace tocra_test {

struct Homography {
    double h[9];
    void Map(double x, double y, double* u, double* v) const {
        const double w = h[6] * x + h[7] * y + h[8];
        *u = (h[0] * x + h[1] * y + h[2]) / w;
        *v = (h[3] * x + h[4] * y + h[5]) / w;
    }
    Homography Inverse() const {
        const double a = h[0], b = h[1], c = h[2], d = h[3], e = h[4], f = h[5], g = h[6], k = h[7], m = h[8];
        const double A = e * m - f * k, B = -(d * m - f * g), C = d * k - e * g;
        const double det = a * A + b * B + c * C;
        return Homography{{A / det, -(b * m - c * k) / det, (b * f - c * e) / det, B / det, (a * m - c * g) / det,
                           -(a * f - c * d) / det, C / det, -(a * k - b * g) / det, (a * e - b * d) / det}};
    }
    // Rotation by deg about the frame centre, then a translation, plus a
    // slight perspective.
    static Homography Make(double deg, double tx, double ty, double px, double py, int W, int H) {
        const double t = deg * M_PI / 180.0, c = std::cos(t), s = std::sin(t);
        const double cx = W / 2.0, cy = H / 2.0;
        return Homography{{c, -s, cx - c * cx + s * cy + tx, s, c, cy - s * cx - c * cy + ty, px, py, 1}};
    }
};

// Smooth texture: slow waves, a gentle ramp.
inline double Texture(double x, double y) {
    return 128.0 + 50.0 * std::sin(x / 23.0) * std::cos(y / 31.0) + 30.0 * std::sin((x + 2 * y) / 57.0) + 0.05 * x -
           0.04 * y;
}

struct Planes {
    int width, height, pitch, chromaPitch;
    bool nv12;
    std::vector<uint8_t> y, u, v;
    Planes(int w, int h, bool isNv12)
        : width(w),
          height(h),
          pitch(isNv12 ? w : (w + 127) & ~127),
          chromaPitch(isNv12 ? w : ((w / 2) + 127) & ~127),
          nv12(isNv12) {
        y.assign(static_cast<size_t>(pitch) * h, 0);
        u.assign(static_cast<size_t>(chromaPitch) * (h / 2), 128);
        if (!isNv12) v.assign(static_cast<size_t>(chromaPitch) * (h / 2), 128);
    }
    uint8_t Y(int c, int r) const { return y[static_cast<size_t>(r) * pitch + c]; }
};

// The reference seen through H (reference point -> frame point), with an
// exposure gain and offset: frame(u, v) = gain * ref(H^-1 (u, v)) + offset.
inline Planes Render(const Homography& H, int W, int Hh, bool nv12, double gain, double offset) {
    Planes p(W, Hh, nv12);
    const Homography inv = H.Inverse();
    for (int r = 0; r < Hh; ++r) {
        for (int c = 0; c < W; ++c) {
            double x, y;
            inv.Map(c, r, &x, &y);
            const double v = gain * Texture(x, y) + offset;
            p.y[static_cast<size_t>(r) * p.pitch + c] =
                static_cast<uint8_t>(std::lround(std::fmin(255, std::fmax(0, v))));
        }
    }
    for (int r = 0; r < Hh / 2; ++r) {
        for (int c = 0; c < W / 2; ++c) {
            const uint8_t cu = static_cast<uint8_t>((c * 3 + r) & 255), cv = static_cast<uint8_t>((c + r * 5) & 255);
            if (nv12) {
                p.u[static_cast<size_t>(r) * p.chromaPitch + 2 * c] = cu;
                p.u[static_cast<size_t>(r) * p.chromaPitch + 2 * c + 1] = cv;
            } else {
                p.u[static_cast<size_t>(r) * p.chromaPitch + c] = cu;
                p.v[static_cast<size_t>(r) * p.chromaPitch + c] = cv;
            }
        }
    }
    return p;
}

}  // namespace tocra_test

#endif
