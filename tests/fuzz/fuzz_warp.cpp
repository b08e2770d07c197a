// The warps and fills on arbitrary matrices and areas over small frames
// (odd sizes included) whose planes are exactly as large as a frame of that
// size: every read stays inside the source and every write inside the
// destination, or the call is refused.
#include <cstdint>
#include <cstring>
#include <vector>

#include "brimvel_tocra.h"

extern "C" int __android_log_print(int, const char*, const char*, ...) { return 0; }

namespace {

struct Frame {
    std::vector<uint8_t> y, u, v;
    tagST_PIC pic{};
    Frame(int w, int h, int pitch, int cpitch, bool nv12)
        : y(static_cast<size_t>(pitch) * h), u(static_cast<size_t>(cpitch) * (h / 2)) {
        if (!nv12) v.resize(static_cast<size_t>(cpitch) * (h / 2));
        pic = {w, h, pitch, y.data(), u.data(), nv12 ? nullptr : v.data(), nv12 ? 0 : TOCRA_FORMAT_YUV420};
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 9 * 4 + 12) return 0;
    float H[9];
    memcpy(H, data, sizeof H);
    const uint8_t* d = data + 36;
    const int variant = d[0] % 10;
    // Any width and height, odd ones included.
    const int W = 1 + d[1] % 80, Hh = d[2] % 60;
    tagST_REGISTRATION_AREA area{d[3] % (W + 4) - 2, d[4] % (Hh + 4) - 2, d[5] % (W + 6) - 2, d[6] % (Hh + 6) - 4};
    const bool nv12 = variant == 1 || variant == 4 || (variant >= 5 && (d[7] & 1));
    const bool stride = variant == 3 || (variant == 5 && !nv12) || variant == 9;
    const int pitch = stride ? ((W + 127) & ~127) : W;
    const int cpitch = nv12 ? pitch : (stride ? (((pitch >> 1) + 127) & ~127) : W / 2);
    Frame src(W, Hh, pitch, cpitch, nv12), dst(W, Hh, pitch, cpitch, nv12);
    for (size_t i = 0; i < src.y.size(); ++i) src.y[i] = static_cast<uint8_t>(i * 7);
    std::vector<unsigned char> table(static_cast<size_t>(pitch / 8) * 16 + 16);
    tagST_PIC ref = src.pic;
    // The source's and destination's own width and height are the warp's to
    // ignore (the source's) or to check against the frame (the
    // destination's, which shape its fill): any values. The fills called
    // directly take the destination's own layout, so there they stay true.
    tagST_PIC s = src.pic, t = dst.pic;
    if (variant < 7 && (d[8] & 1)) {
        s.width = d[9] % 90;
        s.height = d[10] % 70;
        t.width = d[10] % 90;
        t.height = d[11] % 70;
    }
    switch (variant) {
        case 0:
            AffineTransform_YUV420(&ref, &s, &t, H, &area, nullptr);
            break;
        case 1:
            AffineTransform_NV12(&ref, &s, &t, H, &area, nullptr);
            break;
        case 2:
            AffineTransform_neon_YUV420(&ref, &s, &t, H, &area, table.data());
            break;
        case 3:
            AffineTransform_neon_Stride_YUV420(&ref, &s, &t, H, &area, table.data());
            break;
        case 4:
            AffineTransform_neon_NV12(&ref, &s, &t, H, &area, table.data());
            break;
        case 5:
            AffineTransform_neon(&ref, &s, &t, H, &area, table.data());
            break;
        case 6:
            AffineTransform(&ref, &s, &t, H, &area, nullptr);
            break;
        case 7:
            if (nv12) {
                ((d[8] & 2) ? FillBlank_neon_NV12 : FillBlank_NV12)(&t, &s, area.x, area.y, area.width, area.height);
            } else {
                ((d[8] & 2) ? FillBlank_neon_YUV420 : FillBlank_YUV420)(&t, &s, area.x, area.y, area.width,
                                                                        area.height);
            }
            break;
        case 8:
            if (nv12) break;
            ((d[8] & 2) ? FillBlank2 : FillBlank3)(&t, area.x, area.y, area.width, area.height);
            break;
        default:
            if (!nv12) FillBlank3_Stride(&t, area.x, area.y, area.width, area.height);
            break;
    }
    return 0;
}
