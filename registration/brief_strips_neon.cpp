// NEON row of the descriptor windows' integral.
#include "frame/neon.h"
#include "registration/brief.h"

namespace tocra {

void BriefIntegralRow_NEON(const uint8_t* src, const uint32_t* above, uint32_t* out, int n, uint32_t sum) {
    const uint16x8_t zero = vdupq_n_u16(0);
    uint32x4_t carry = vdupq_n_u32(sum);
    int j = 0;
    // A group of eight entries reads src[j .. j + 7]; the row may read up to
    // src[n - 2], so a whole group needs j + 9 <= n.
    for (; j + 9 <= n; j += 8) {
        const uint16x8_t w = vmovl_u8(vld1_u8(src + j));
        // Inclusive prefix in three steps (at most 8 * 255, no overflow).
        uint16x8_t f = vaddq_u16(w, vextq_u16(zero, w, 7));
        f = vaddq_u16(f, vextq_u16(zero, f, 6));
        f = vaddq_u16(f, vextq_u16(zero, f, 4));
        const uint16x8_t before = vsubq_u16(f, w);  // src[j] .. src[j + i - 1]
        const uint32x4_t lo = vaddq_u32(vaddq_u32(vld1q_u32(above + j), carry), vmovl_u16(vget_low_u16(before)));
        const uint32x4_t hi = vaddq_u32(vaddq_u32(vld1q_u32(above + j + 4), carry), vmovl_u16(vget_high_u16(before)));
        vst1q_u32(out + j, lo);
        vst1q_u32(out + j + 4, hi);
        carry = vaddq_u32(carry, vmovl_u16(vdup_lane_u16(vget_high_u16(f), 3)));
    }
    BriefIntegralRow_C(src + j, above + j, out + j, n - j, vgetq_lane_u32(carry, 0));
}

}  // namespace tocra
