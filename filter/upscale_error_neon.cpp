// Vector row of the up-scale error (see upscale_error.cpp).
#include <cstdint>

#include "filter/filter_kernels.h"
#include "frame/neon.h"

namespace tocra {

// Sixteen pixels per step: the widened difference narrowed with signed
// saturation. err may be b: each vector is loaded before it is stored. The
// plain row does the rest.
void UpScaleErrorRow_NEON(const uint8_t* a, const uint8_t* b, int8_t* err, int width) {
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8x16_t va = vld1q_u8(a + x), vb = vld1q_u8(b + x);
        const int16x8_t lo = vreinterpretq_s16_u16(vsubl_u8(vget_low_u8(va), vget_low_u8(vb)));
        const int16x8_t hi = vreinterpretq_s16_u16(vsubl_u8(vget_high_u8(va), vget_high_u8(vb)));
        vst1q_s8(err + x, vcombine_s8(vqmovn_s16(lo), vqmovn_s16(hi)));
    }
    UpScaleErrorRow_C(a + x, b + x, err + x, width - x);
}

}  // namespace tocra
