// Vector count rows of the cumulative histograms: whole blocks of bytes are
// loaded (for step 2 de-interleaved, keeping the even columns) and counted
// into the four counter sets in turn; the rest goes to the plain row.
#include <cstdint>

#include "filter/filter_kernels.h"
#include "frame/neon.h"

namespace tocra {
namespace {

inline void Count16(uint32_t* counts, uint8x16_t v) {
    uint8_t b[16];
    vst1q_u8(b, v);
    for (int i = 0; i < 16; i += 4) {
        ++counts[b[i]];
        ++counts[256 + b[i + 1]];
        ++counts[512 + b[i + 2]];
        ++counts[768 + b[i + 3]];
    }
}

}  // namespace

void CumCountRow_NEON(uint32_t* counts, const uint8_t* p, int width, int step) {
    int x = 0;
    if (step == 1) {
        for (; x + 16 <= width; x += 16) {
            __builtin_prefetch(p + x + 64);
            Count16(counts, vld1q_u8(p + x));
        }
    } else if (step == 2) {
        for (; x + 32 <= width; x += 32) Count16(counts, vld2q_u8(p + x).val[0]);
    }
    CumCountRow_C(counts, p + x, width - x, step);
}

}  // namespace tocra
