// Vector row of the x2 up-scale (see upscale_x4.cpp).
#include <cstdint>

#include "filter/filter_kernels.h"
#include "frame/neon.h"

namespace tocra {

// Eight source columns per step. With horizontal terms h = 3a + b and
// g = a + 3b of each row, the four phases are 3h0 + h1, 3g0 + g1, h0 + 3h1
// and g0 + 3g1, rounded once by a narrowing shift of 4. The plain row does
// the columns left over.
void UpScaleRow_NEON(const uint8_t* s0, const uint8_t* s1, uint8_t* d0, uint8_t* d1, int width) {
    const uint8x8_t three = vdup_n_u8(3);
    int x = 0;
    for (; x + 8 < width; x += 8) {
        const uint8x8_t a = vld1_u8(s0 + x), b = vld1_u8(s0 + x + 1);
        const uint8x8_t c = vld1_u8(s1 + x), d = vld1_u8(s1 + x + 1);
        const uint16x8_t h0 = vmlal_u8(vmovl_u8(b), a, three);
        const uint16x8_t g0 = vmlal_u8(vmovl_u8(a), b, three);
        const uint16x8_t h1 = vmlal_u8(vmovl_u8(d), c, three);
        const uint16x8_t g1 = vmlal_u8(vmovl_u8(c), d, three);
        uint8x8x2_t top, bottom;
        top.val[0] = vrshrn_n_u16(vmlaq_n_u16(h1, h0, 3), 4);
        top.val[1] = vrshrn_n_u16(vmlaq_n_u16(g1, g0, 3), 4);
        bottom.val[0] = vrshrn_n_u16(vmlaq_n_u16(h0, h1, 3), 4);
        bottom.val[1] = vrshrn_n_u16(vmlaq_n_u16(g0, g1, 3), 4);
        vst2_u8(d0 + 2 * x + 1, top);
        vst2_u8(d1 + 2 * x + 1, bottom);
    }
    UpScaleRow_C(s0 + x, s1 + x, d0 + 2 * x, d1 + 2 * x, width - x);
}

}  // namespace tocra
