// Vector count rows of the cumulative histograms: whole blocks of bytes are
// loaded (for step 2 de-interleaved, keeping the even columns) and counted
// into the four counter sets in turn; the rest goes to the plain row.
#include <cstdint>

#include "filter/filter_kernels.h"
#include "frame/neon.h"

namespace tocra {
namespace {

// The four counter sets, each through its own pointer (so that a count
// is one indexed load, add and store).
struct CounterSets {
    uint32_t* c0;
    uint32_t* c1;
    uint32_t* c2;
    uint32_t* c3;
};

// Counts the four bytes of w into the four sets: one field extraction,
// load, add and store per byte.
inline void Count4(const CounterSets& c, uint32_t w) {
    ++c.c0[w & 0xFF];
    ++c.c1[(w >> 8) & 0xFF];
    ++c.c2[(w >> 16) & 0xFF];
    ++c.c3[w >> 24];
}

// The sixteen bytes are taken out of the vector into general registers and
// counted from there (no round trip through memory): on 64-bit ARM as two
// 64-bit halves, elsewhere as four 32-bit lanes (on 32-bit ARM a 64-bit
// half would take a register pair and two-register shifts).
inline void Count16(const CounterSets& c, uint8x16_t v) {
#if defined(__aarch64__)
    const uint64x2_t w = vreinterpretq_u64_u8(v);
    const uint64_t lo = vgetq_lane_u64(w, 0), hi = vgetq_lane_u64(w, 1);
    Count4(c, static_cast<uint32_t>(lo));
    Count4(c, static_cast<uint32_t>(lo >> 32));
    Count4(c, static_cast<uint32_t>(hi));
    Count4(c, static_cast<uint32_t>(hi >> 32));
#else
    const uint32x4_t w = vreinterpretq_u32_u8(v);
    Count4(c, vgetq_lane_u32(w, 0));
    Count4(c, vgetq_lane_u32(w, 1));
    Count4(c, vgetq_lane_u32(w, 2));
    Count4(c, vgetq_lane_u32(w, 3));
#endif
}

}  // namespace

void CumCountRow_NEON(uint32_t* counts, const uint8_t* p, int width, int step) {
    const CounterSets c{counts, counts + 256, counts + 512, counts + 768};
    int x = 0;
    if (step == 1) {
        for (; x + 16 <= width; x += 16) {
            __builtin_prefetch(p + x + 64);
            Count16(c, vld1q_u8(p + x));
        }
    } else if (step == 2) {
        for (; x + 32 <= width; x += 32) Count16(c, vld2q_u8(p + x).val[0]);
    }
    CumCountRow_C(counts, p + x, width - x, step);
}

}  // namespace tocra
