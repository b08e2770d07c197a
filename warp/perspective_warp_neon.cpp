// Vector rows of the perspective warp.
//
// The eight columns of one divisor run are four 2x2 blocks. Their top-left
// positions come from the column table as one four-lane float vector, are
// mapped in float lanes, truncated and split into 7-bit fractions in integer
// lanes. When all four blocks read well inside the source (the usual case)
// their 3x3 texel neighbourhoods are gathered four texels per row and
// blended in 16-bit lanes: eight luma outputs per row of the pair. A block
// that reads near the plane's edge goes through the plain block arithmetic
// (the vector path loads one texel more on the right); both give the same
// bytes. The texel checks map the runs the same way and test whole runs
// against the plane's rectangle, block by block only near the edges.
#include <cstring>

#include "frame/log.h"
#include "frame/neon.h"
#include "warp/warp_internal.h"

namespace tocra {

namespace {

// Four adjacent texels as one 32-bit lane (first texel in the low byte).
inline uint32_t Quad(const uint8_t* p) {
    uint32_t v;
    memcpy(&v, p, sizeof v);
    return v;
}

// {f0, f0, f1, f1, f2, f2, f3, f3}: each block's weight for its two columns.
inline uint16x8_t PerBlockPairs(uint32x4_t f) {
    const uint16x4_t f16 = vmovn_u32(f);
    const uint16x4x2_t z = vzip_u16(f16, f16);
    return vcombine_u16(z.val[0], z.val[1]);
}

inline bool AllSet(uint32x4_t m) {
    const uint32x2_t half = vand_u32(vget_low_u32(m), vget_high_u32(m));
    return (vget_lane_u32(half, 0) & vget_lane_u32(half, 1)) == 0xFFFFFFFFu;
}

// Four blocks at columns c0 .. c0 + 6, every texel inside the planes.
void WarpRun_NEON(const WarpPlanes& p, int c0, int r, const int32_t* ix, const int32_t* iy, uint32x4_t fx,
                  uint32x4_t fy, bool twoRows, bool writeChroma) {
    const int pitch = p.pitch;
    // Per texel row, each block's four texels ix .. ix + 3 in one 32-bit
    // lane; its left pairs (ix, ix + 1) are the low halves, its right pairs
    // (ix + 1, ix + 2) the halves one byte up.
    const uint8_t* s[4];
    for (int b = 0; b < 4; ++b) s[b] = p.srcY + static_cast<ptrdiff_t>(iy[b]) * pitch + ix[b];
    uint16x4_t left[3], right[3];
    for (int a = 0; a < 3; ++a) {
        const ptrdiff_t o = static_cast<ptrdiff_t>(a) * pitch;
        const uint32_t q[4] = {Quad(s[0] + o), Quad(s[1] + o), Quad(s[2] + o), Quad(s[3] + o)};
        const uint32x4_t v = vld1q_u32(q);
        left[a] = vmovn_u32(v);
        right[a] = vmovn_u32(vshrq_n_u32(v, 8));
    }
    const uint16x8_t wx = PerBlockPairs(fx);
    const uint16x8_t wx0 = vsubq_u16(vdupq_n_u16(128), wx);
    const uint16x8_t wy = PerBlockPairs(fy);
    const uint16x8_t wy0 = vsubq_u16(vdupq_n_u16(128), wy);
    // Horizontal blend of each texel row, rounded to 9 bits: (T + 32) >> 6.
    uint16x8_t hr[3];
    for (int a = 0; a < 3; ++a) {
        const uint16x8_t l = vmovl_u8(vreinterpret_u8_u16(left[a]));
        const uint16x8_t rr = vmovl_u8(vreinterpret_u8_u16(right[a]));
        const uint16x8_t t = vaddq_u16(vmulq_u16(l, wx0), vmulq_u16(rr, wx));
        hr[a] = vshrq_n_u16(vaddq_u16(t, vdupq_n_u16(32)), 6);
    }
    // Vertical blend: at most 510 * 128 + 128, so 16 bits hold it.
    for (int j = 0; j < (twoRows ? 2 : 1); ++j) {
        const uint16x8_t v = vaddq_u16(vaddq_u16(vmulq_u16(hr[j], wy0), vmulq_u16(hr[j + 1], wy)), vdupq_n_u16(128));
        vst1_u8(p.dstY + static_cast<ptrdiff_t>(r + j) * pitch + c0, vmovn_u16(vshrq_n_u16(v, 8)));
    }
    // Nearest chroma, one sample (pair) per block.
    if (!writeChroma) return;
    const ptrdiff_t cpitch = p.chromaPitch;
    for (int b = 0; b < 4; ++b) {
        const int c = c0 + 2 * b;
        if (p.nv12) {
            const ptrdiff_t index = ((ix[b] + 1) & ~1) + cpitch * ((iy[b] + 1) >> 1);
            uint8_t* out = p.dstU + (r >> 1) * cpitch + c;
            out[0] = p.srcU[index];
            out[1] = p.srcU[index + 1];
        } else {
            const ptrdiff_t index = ((iy[b] + 1) >> 1) * cpitch + ((ix[b] + 1) >> 1);
            const ptrdiff_t out = (r >> 1) * cpitch + (c >> 1);
            p.dstU[out] = p.srcU[index];
            p.dstV[out] = p.srcV[index];
        }
    }
}

// The mapping of a row's divisor runs, shared by the row and its check:
// D starts at h6 x + h7 r + 1 and grows by 8 h6 after each reciprocal; the
// four block starts of run k come from the column table.
struct RowMapper {
    float32x4_t h0, h3, rowX, rowY, h2, h5;
    int32x4_t zero, maxX, maxY;
    float denom, step;

    // Blocks with 0 <= ix <= maxX and 0 <= iy <= maxY count as inside.
    RowMapper(const float* H, int x, int r, int maxIx, int maxIy) {
        const float rf = static_cast<float>(r);
        step = 8.0f * H[6];
        denom = H[6] * static_cast<float>(x) + H[7] * rf + 1.0f;
        h0 = vdupq_n_f32(H[0]);
        h3 = vdupq_n_f32(H[3]);
        rowX = vdupq_n_f32(H[1] * rf);
        rowY = vdupq_n_f32(H[4] * rf);
        h2 = vdupq_n_f32(H[2]);
        h5 = vdupq_n_f32(H[5]);
        zero = vdupq_n_s32(0);
        maxX = vdupq_n_s32(maxIx);
        maxY = vdupq_n_s32(maxIy);
    }

    // Maps the next run; true when all four blocks are inside.
    bool Next(const float* column, float32x4_t* sx, float32x4_t* sy, int32x4_t* ix, int32x4_t* iy) {
        const float32x4_t qv = vdupq_n_f32(1.0f / denom);
        denom += step;
        const float32x4_t cv = vld1q_f32(column);
        *sx = vmulq_f32(vaddq_f32(vaddq_f32(vmulq_f32(h0, cv), rowX), h2), qv);
        *sy = vmulq_f32(vaddq_f32(vaddq_f32(vmulq_f32(h3, cv), rowY), h5), qv);
        *ix = vcvtq_s32_f32(*sx);
        *iy = vcvtq_s32_f32(*sy);
        return AllSet(vandq_u32(vandq_u32(vcgeq_s32(*ix, zero), vcleq_s32(*ix, maxX)),
                                vandq_u32(vcgeq_s32(*iy, zero), vcleq_s32(*iy, maxY))));
    }

    // The reciprocal held for the columns after the last whole run.
    float TailReciprocal() const { return 1.0f / denom; }
};

}  // namespace

void WarpRow_NEON(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, const float* table,
                  bool writeChroma) {
    // A block uses columns ix .. ix + 2 and rows iy .. iy + 2, and the
    // vector path loads one texel more on the right.
    RowMapper map(H, x, r, p.pitch - 4, p.rows - 3);
    const float32x4_t f128 = vdupq_n_f32(128.0f);
    const int runs = w >> 3;
    for (int k = 0; k < runs; ++k) {
        float32x4_t sx, sy;
        int32x4_t ixv, iyv;
        const int c0 = x + 8 * k;
        if (map.Next(table + 4 * k, &sx, &sy, &ixv, &iyv)) {
            const uint32x4_t fx = vcvtq_u32_f32(vmulq_f32(vabsq_f32(vsubq_f32(sx, vcvtq_f32_s32(ixv))), f128));
            const uint32x4_t fy = vcvtq_u32_f32(vmulq_f32(vabsq_f32(vsubq_f32(sy, vcvtq_f32_s32(iyv))), f128));
            int32_t ix[4], iy[4];
            vst1q_s32(ix, ixv);
            vst1q_s32(iy, iyv);
            WarpRun_NEON(p, c0, r, ix, iy, fx, fy, twoRows, writeChroma);
        } else {
            float sxs[4], sys[4];
            vst1q_f32(sxs, sx);
            vst1q_f32(sys, sy);
            for (int b = 0; b < 4; ++b) WarpBlock_C(p, c0 + 2 * b, r, sxs[b], sys[b], twoRows, writeChroma);
        }
    }
    // Columns after the last whole run: the run's divisor, the plain blocks.
    if ((w & 7) != 0) WarpBlocks_C(p, H, x + 8 * runs, x + w, r, map.TailReciprocal(), twoRows, writeChroma);
}

bool WarpRowInside_NEON(const WarpPlanes& p, const float* H, int x, int w, int r, bool twoRows, const float* table,
                        bool writeChroma) {
    // Inside this rectangle a block's luma rows iy .. iy + 2, columns
    // ix .. ix + 2 and its chroma sample are all inside the planes; near
    // its edges the blocks are checked one by one.
    RowMapper map(H, x, r, p.pitch - 3, p.rows - 3);
    const int runs = w >> 3;
    for (int k = 0; k < runs; ++k) {
        float32x4_t sx, sy;
        int32x4_t ixv, iyv;
        if (map.Next(table + 4 * k, &sx, &sy, &ixv, &iyv)) continue;
        float sxs[4], sys[4];
        vst1q_f32(sxs, sx);
        vst1q_f32(sys, sy);
        for (int b = 0; b < 4; ++b) {
            if (!BlockInside(p, sxs[b], sys[b], twoRows, writeChroma)) return false;
        }
    }
    if ((w & 7) != 0) return BlocksInside_C(p, H, x + 8 * runs, x + w, r, map.TailReciprocal(), twoRows, writeChroma);
    return true;
}

}  // namespace tocra
