// Vector row copy of the border fills: 64 bytes per step while whole
// vectors remain, then 16; the rest of the run (and a constant fill) goes
// to the plain copy.
#include "frame/neon.h"
#include "warp/warp_internal.h"

namespace tocra {

void FillSpan_NEON(uint8_t* dst, const FillSource& s, size_t offset, size_t n) {
    if (s.plane == nullptr) {
        FillSpan_C(dst, s, offset, n);
        return;
    }
    uint8_t* d = dst + offset;
    const uint8_t* p = s.plane + offset;
    size_t i = 0;
    for (; i + 64 <= n; i += 64) {
        const uint8x16_t a = vld1q_u8(p + i), b = vld1q_u8(p + i + 16);
        const uint8x16_t c = vld1q_u8(p + i + 32), e = vld1q_u8(p + i + 48);
        vst1q_u8(d + i, a);
        vst1q_u8(d + i + 16, b);
        vst1q_u8(d + i + 32, c);
        vst1q_u8(d + i + 48, e);
    }
    for (; i + 16 <= n; i += 16) vst1q_u8(d + i, vld1q_u8(p + i));
    FillSpan_C(dst, s, offset + i, n - i);
}

}  // namespace tocra
