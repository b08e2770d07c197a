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

// The sixteen bytes are taken out of the vector as two 64-bit halves and
// counted from there: one field extraction, load, add and store per byte
// (no round trip through memory).
inline void Count8(const CounterSets& c, uint64_t w) {
    for (int i = 0; i < 8; i += 4) {
        ++c.c0[(w >> (8 * i)) & 0xFF];
        ++c.c1[(w >> (8 * i + 8)) & 0xFF];
        ++c.c2[(w >> (8 * i + 16)) & 0xFF];
        ++c.c3[(w >> (8 * i + 24)) & 0xFF];
    }
}

inline void Count16(const CounterSets& c, uint8x16_t v) {
    const uint64x2_t w = vreinterpretq_u64_u8(v);
    Count8(c, vgetq_lane_u64(w, 0));
    Count8(c, vgetq_lane_u64(w, 1));
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
