// Brightness balance between two frames: subsampled cumulative histograms,
// the intensity mapping function between them, and its joint point.
#include <cstdint>
#include <cstring>

#include "brimvel_tocra.h"
#include "filter/filter_kernels.h"
#include "frame/entry_guard.h"
#include "frame/hooks.h"
#include "frame/log.h"
#include "frame/platform.h"

// imf[i] = the j whose cumB[j] lies closest to cumA[i]; the difference is a
// signed 32-bit value (wrapping) before its magnitude is taken, and the
// smallest j wins a tie.
extern "C" void CalcForwardIMF(const uint32_t* cumA, const uint32_t* cumB, uint8_t* imf) {
    if (cumA == nullptr || cumB == nullptr || imf == nullptr) {
        TOCRA_LOGE("%s null pointer\n", "CalcForwardIMF");
        return;
    }
    for (int i = 0; i < 256; ++i) {
        int32_t best = 0x7FFFFFFF;
        int bestJ = 0;
        for (int j = 0; j < 256; ++j) {
            const uint32_t diff = cumA[i] - cumB[j];
            // |diff| in two's complement: the magnitude of INT32_MIN stays INT32_MIN.
            const int32_t mag = static_cast<int32_t>(static_cast<int32_t>(diff) < 0 ? 0u - diff : diff);
            if (mag < best) {
                best = mag;
                bestJ = j;
            }
        }
        imf[i] = static_cast<uint8_t>(bestJ);
    }
}

// The average of the IMF at the lowest and the highest level whose shift
// comes within 2 of the largest shift. *joint is kept where no level
// qualifies.
extern "C" void CalcJointPoint(const uint32_t* cumB, const uint32_t* cumA, int32_t* joint) {
    if (cumA == nullptr || cumB == nullptr || joint == nullptr) {
        TOCRA_LOGE("%s null pointer\n", "CalcJointPoint");
        return;
    }
    uint8_t imf[256];
    CalcForwardIMF(cumA, cumB, imf);
    const bool lifts = imf[128] >= 128;
    int d[256];
    int maxShift = 0;
    for (int i = 0; i < 256; ++i) {
        d[i] = lifts ? imf[i] - i : i - imf[i];
        if (d[i] > maxShift) maxShift = d[i];
    }
    const int threshold = maxShift - 2;
    for (int i = 0; i < 256; ++i) {
        if (d[i] >= threshold) {
            *joint = imf[i];
            break;
        }
    }
    for (int i = 255; i >= 0; --i) {
        if (d[i] >= threshold) {
            *joint = (*joint + imf[i]) >> 1;
            return;
        }
    }
}

// Buffers: frames A and B hold height rows of stride bytes each (stride >=
// width), the output handle a 2052-byte FrameBalanceResult.
extern "C" int CalcuFrameBalance_TocraAPI(FrameBalanceParams* params) {
    TOCRA_ONE_CALL_AT_A_TIME("CalcuFrameBalance_TocraAPI");
    uint32_t set[4][256];
    memset(set, 0, sizeof(set));
    int32_t joint = 0;
    if (params == nullptr) {
        TOCRA_LOGE("%s null request\n", "CalcuFrameBalance_TocraAPI");
        return TOCRA_NULL_POINTER;
    }
    const FrameBalanceParams p = *params;
    const uint8_t* a = static_cast<const uint8_t*>(tocra::ConvertAddr(p.hFrameA));
    const uint8_t* b = static_cast<const uint8_t*>(tocra::ConvertAddr(p.hFrameB));
    FrameBalanceResult* out = static_cast<FrameBalanceResult*>(tocra::ConvertAddr(p.hOutput));
    if (a == nullptr || b == nullptr || out == nullptr) {
        TOCRA_LOGE("CalcuFrameBalance Neon Get Pointer Error\n");
        return TOCRA_NULL_POINTER;
    }
    // Nothing to count (no rows or no columns) is no error: both histograms
    // are zero. Refused: sampled bytes past `height` rows of `stride` bytes,
    // and planes past a 32-bit size (the band offsets would overflow).
    if (!tocra::CumHistBandsReadInside(a, p.width, p.height, p.stride, 2) ||
        (p.width > 0 && p.height > 0 && static_cast<int64_t>(p.stride) * p.height > INT32_MAX)) {
        TOCRA_LOGE("CalcuFrameBalance invalid size: width[%d] height[%d] stride[%d]\n", p.width, p.height, p.stride);
        return TOCRA_NULL_POINTER;
    }
    if (MultiThread_Init(4) != 0) {
        TOCRA_LOGE("CalcuFrameBalance MultiThread_Init fail\n");
        return TOCRA_THREAD_FAILED;
    }
    // The result is assembled here and stored whole: the output may have
    // any alignment.
    FrameBalanceResult r;
    GetCumHist_Neon_MT(a, p.width, p.height, p.stride, 2, &set[0][0]);
    for (int v = 0; v < 256; ++v) r.cumA[v] = set[0][v] + set[1][v] + set[2][v] + set[3][v];
    GetCumHist_Neon_MT(b, p.width, p.height, p.stride, 2, &set[0][0]);
    for (int v = 0; v < 256; ++v) r.cumB[v] = set[0][v] + set[1][v] + set[2][v] + set[3][v];
    CalcJointPoint(r.cumB, r.cumA, &joint);
    r.joint = joint;
    memcpy(out, &r, sizeof(r));

    MultiThread_destory();
    platform_cacheflush(out, reinterpret_cast<uint8_t*>(out) + sizeof(FrameBalanceResult));
    TOCRA_LOGI("exit func %s\n", "CalcuFrameBalance_TocraAPI");
    return TOCRA_OK;
}
