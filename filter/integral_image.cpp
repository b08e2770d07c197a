// Summed-area table of an 8-bit plane: row prefix sums in four bands on the
// pool, then one column pass on the calling thread.
#include <cstdint>
#include <cstring>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/filter_kernels.h"
#include "frame/log.h"
#include "frame/neon.h"

namespace tocra {

void IntegralRowPrefix_C(uint32_t* out, const uint8_t* p, int width) {
    uint32_t s = 0;
    out[0] = 0;
    for (int x = 0; x < width; ++x) {
        s += p[x];
        out[x + 1] = s;
    }
}

// In-register prefix sum of eight 16-bit lanes.
inline uint16x8_t Prefix8(uint16x8_t v) {
    const uint16x8_t zero = vdupq_n_u16(0);
    v = vaddq_u16(v, vextq_u16(zero, v, 7));
    v = vaddq_u16(v, vextq_u16(zero, v, 6));
    return vaddq_u16(v, vextq_u16(zero, v, 4));
}

// Sixteen pixels per step: the bytes are widened by interleaving with zero,
// each half gets an in-register prefix sum in 16-bit lanes, the high half
// adds the low half's total (at most 16 x 255 in all), and the four quarters
// are widened the same way and offset by the running total.
void IntegralRowPrefix_Neon(uint32_t* out, const uint8_t* p, int width) {
    out[0] = 0;
    uint32_t* o = out + 1;
    const uint8x16_t zero8 = vdupq_n_u8(0);
    const uint16x8_t zero16 = vdupq_n_u16(0);
    uint32x4_t carry = vdupq_n_u32(0);
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const uint8x16x2_t bytes = vzipq_u8(vld1q_u8(p + x), zero8);
        const uint16x8_t lo = Prefix8(vreinterpretq_u16_u8(bytes.val[0]));
        const uint16x8_t hi =
            vaddq_u16(Prefix8(vreinterpretq_u16_u8(bytes.val[1])), vdupq_lane_u16(vget_high_u16(lo), 3));
        const uint16x8x2_t wl = vzipq_u16(lo, zero16), wh = vzipq_u16(hi, zero16);
        vst1q_u32(o + x, vaddq_u32(vreinterpretq_u32_u16(wl.val[0]), carry));
        vst1q_u32(o + x + 4, vaddq_u32(vreinterpretq_u32_u16(wl.val[1]), carry));
        vst1q_u32(o + x + 8, vaddq_u32(vreinterpretq_u32_u16(wh.val[0]), carry));
        const uint32x4_t last = vaddq_u32(vreinterpretq_u32_u16(wh.val[1]), carry);
        vst1q_u32(o + x + 12, last);
        carry = vdupq_lane_u32(vget_high_u32(last), 1);
    }
    uint32_t s = vgetq_lane_u32(carry, 0);
    for (; x < width; ++x) {
        s += p[x];
        o[x] = s;
    }
}

void IntegralColumns_C(uint32_t* row0, int pitch, int rows, int cols) {
    for (int r = 1; r < rows; ++r) {
        const uint32_t* above = row0 + RowOffset(r - 1, pitch);
        uint32_t* row = row0 + RowOffset(r, pitch);
        for (int c = 0; c < cols; ++c) row[c] += above[c];
    }
}

// Sixteen columns per step, a scalar tail for the rest.
void IntegralColumns_Neon(uint32_t* row0, int pitch, int rows, int cols) {
    for (int r = 1; r < rows; ++r) {
        const uint32_t* above = row0 + RowOffset(r - 1, pitch);
        uint32_t* row = row0 + RowOffset(r, pitch);
        int c = 0;
        for (; c + 16 <= cols; c += 16) {
            __builtin_prefetch(row + c + 64);
            vst1q_u32(row + c, vaddq_u32(vld1q_u32(row + c), vld1q_u32(above + c)));
            vst1q_u32(row + c + 4, vaddq_u32(vld1q_u32(row + c + 4), vld1q_u32(above + c + 4)));
            vst1q_u32(row + c + 8, vaddq_u32(vld1q_u32(row + c + 8), vld1q_u32(above + c + 8)));
            vst1q_u32(row + c + 12, vaddq_u32(vld1q_u32(row + c + 12), vld1q_u32(above + c + 12)));
        }
        for (; c < cols; ++c) row[c] += above[c];
    }
}

}  // namespace tocra

using namespace tocra;

// Task k fills integral rows k*band+1 .. (k+1)*band (the last task up to
// the plane's height), band = height / 4.
extern "C" void IntegralMat_partH_Caller(void* arg, int index) {
    const IntegralJob* job = static_cast<const IntegralJob*>(arg);
    const int height = job->integralHeight - 1;
    const int width = job->pitch - 1;
    const Band band = QuarterBand(height, index);
    for (int i = 0; i < band.rows; ++i) {
        const int srcRow = band.first + i;  // integral row srcRow + 1
        uint32_t* out = reinterpret_cast<uint32_t*>(job->pRow1) + RowOffset(srcRow, job->pitch);
        IntegralRowPrefix_Neon(out, job->pSrc + RowOffset(srcRow, job->srcStride), width);
    }
}

// Runs on the calling thread: rows 1 .. integralHeight-1 each get the row
// above added, all `pitch` columns (column 0 included).
extern "C" void IntegralMat_partV_Caller(int32_t* row1, int pitch, int integralHeight) {
    if (row1 == nullptr || pitch < 1 || integralHeight < 2) return;
    IntegralColumns_Neon(reinterpret_cast<uint32_t*>(row1 - pitch), pitch, integralHeight, pitch);
}

// dst needs (width + 1) * (height + 1) int32 values; src needs `height` rows
// of `stride` bytes (stride >= width). Sums wrap modulo 2^32.
extern "C" void IntergralMat_MT(const uint8_t* src, int32_t* dst, int width, int height, int stride) {
    if (dst == nullptr || width < 0 || height < 0 || (height > 0 && (src == nullptr || stride < width)) ||
        static_cast<uint64_t>(width + 1ull) * (height + 1ull) > SIZE_MAX / 8) {
        TOCRA_LOGE("%s invalid input: width[%d] height[%d] stride[%d]\n", "IntergralMat_MT", width, height, stride);
        return;
    }
    const int pitch = width + 1;
    memset(dst, 0, sizeof(int32_t) * static_cast<size_t>(pitch));
    if (height == 0) return;
    IntegralJob job{dst + pitch, src, pitch, stride, height + 1, kBandTasks};
    RunFourBands(IntegralMat_partH_Caller, &job);
    IntegralMat_partV_Caller(dst + pitch, pitch, height + 1);
}
