// Mean filter of an 8-bit plane with a (2R+1) x (2R+1) window clipped at the
// borders, and the face weight map entry point built on it.
#include <climits>
#include <cstdint>

#include "brimvel_tocra.h"
#include "filter/face_map.h"
#include "filter/filter_kernels.h"
#include "frame/entry_guard.h"
#include "frame/hooks.h"
#include "frame/log.h"
#include "frame/platform.h"

namespace {

// The numbers that BoxFiltering_neon's log lines print after its name: part
// of each line's text, whatever line of this file the call is on.
constexpr int kSizeLogLine = 2895;      // "... Input width[%d] or height/4[%d] less than 2*R[%d]!"
constexpr int kMemInfoLogLine = 2927;   // "---[MEM_INFO]---[...][2927] Ap BoxFilter use ..."
constexpr int kMemErrorLogLine = 2930;  // "---[MEM_ERR]---[...][2930] Memmory occur an error!"

}  // namespace

// Buffers: src and dst hold height rows of stride bytes (dst is written
// whole, padding included; src may be dst); work is 4-byte aligned and
// holds the horizontal sums (width*height*4 bytes), then the scratch slices.
// Answers -998 without writing anything where a pass would go through a
// null address or leave these buffers.
extern "C" int BoxFiltering_neon(const uint8_t* src, uint8_t* dst, int width, int stride, int height, int radius,
                                 uint8_t* work, int workSize) {
    TOCRA_LOGI("enter func %s\n", "BoxFiltering_neon");
    if (src == nullptr || dst == nullptr || work == nullptr) {
        TOCRA_LOGE("%s null pointer: src, dst and work must all be set\n", "BoxFiltering_neon");
        return TOCRA_NULL_POINTER;
    }
    // 2R in 64 bits: the check stays a check for any radius.
    if (width <= 2 * static_cast<int64_t>(radius) || 2 * static_cast<int64_t>(radius) >= height / 4) {
        TOCRA_LOGE("%s %d Input width[%d] or height/4[%d] less than 2*R[%d]!\n", "BoxFiltering_neon", kSizeLogLine,
                   width, height, static_cast<int>(2u * static_cast<unsigned>(radius)));  // wraps like the device's int
        return TOCRA_NULL_POINTER;
    }
    if (radius < 0 || stride < width) {
        TOCRA_LOGE("%s invalid input: width[%d] stride[%d] radius[%d]\n", "BoxFiltering_neon", width, stride, radius);
        return TOCRA_NULL_POINTER;
    }
    // What the passes reserve ("use") and what they really touch: the last
    // slice may end before the reserved area does. Only a work area shorter
    // than what is touched is refused, before any pass runs; one that is
    // merely shorter than the reservation is reported after the fact.
    const int64_t sumBytes = static_cast<int64_t>(width) * height * 4;
    const int64_t use =
        sumBytes + static_cast<int64_t>(stride) * (2 * static_cast<int64_t>(radius) + (height + 3) / 4) * 4;
    const int64_t touched = sumBytes + tocra::BoxSumVScratchExtent(width, stride, height, radius);
    const int useShown = use > INT_MAX ? INT_MAX : static_cast<int>(use);
    if (touched > workSize) {
        TOCRA_LOGI("---[MEM_INFO]---[%s][%d] Ap BoxFilter use [%d], Total[%d], left [%d]\n", "BoxFiltering_neon",
                   kMemInfoLogLine, useShown, workSize, static_cast<int>(workSize - static_cast<int64_t>(useShown)));
        TOCRA_LOGE("---[MEM_ERR]---[%s][%d] Memmory occur an error!\n", "BoxFiltering_neon", kMemErrorLogLine);
        return TOCRA_NULL_POINTER;
    }
    if (reinterpret_cast<uintptr_t>(work) % alignof(int32_t) != 0) {
        TOCRA_LOGE("%s work area must be 4-byte aligned\n", "BoxFiltering_neon");
        return TOCRA_NULL_POINTER;
    }

    int32_t* sums = reinterpret_cast<int32_t*>(work);
    uint8_t* cursor = work + static_cast<size_t>(width) * static_cast<size_t>(height) * 4;

    tocra::Stamp start = tocra::Now();
    IntegralMat_H_MT(sums, src, width, stride, height, radius);
    tocra::PrintElapsed("IntegralMat_H_MT", start);

    start = tocra::Now();
    IntegralMat_V_MT(dst, sums, width, stride, height, radius, &cursor);
    tocra::PrintElapsed("IntegralMat_V_MT", start);

    const int used = static_cast<int>(cursor - work);
    TOCRA_LOGI("---[MEM_INFO]---[%s][%d] Ap BoxFilter use [%d], Total[%d], left [%d]\n", "BoxFiltering_neon",
               kMemInfoLogLine, used, workSize, workSize - used);
    if (used > workSize) {
        TOCRA_LOGE("---[MEM_ERR]---[%s][%d] Memmory occur an error!\n", "BoxFiltering_neon", kMemErrorLogLine);
    }
    TOCRA_LOGI("exit func %s\n", "BoxFiltering_neon");
    return TOCRA_OK;
}

// Buffers: the output handle holds Pitch128(width) * height bytes, the faces
// handle faceNum 60-byte FaceInfo records, the work handle workSize bytes
// (only used when smoothing runs; see BoxFiltering_neon).
extern "C" int BoxFilter_TocraAPI(BoxFilterApiParams* params) {
    TOCRA_ONE_CALL_AT_A_TIME("BoxFilter_TocraAPI");
    if (params == nullptr) {
        TOCRA_LOGE("%s null request\n", "BoxFilter_TocraAPI");
        return TOCRA_NULL_POINTER;
    }
    const BoxFilterApiParams p = *params;
    tocra::FaceMap m = tocra::FaceMapOf(p, p.hOutput, p.width, p.height);
    if (m.map == nullptr || m.faces == nullptr) {
        TOCRA_LOGI("BoxfilterYuv2RgbHist convert addr pointer error\n");
        return TOCRA_THREAD_FAILED;
    }
    // The map is stride * height bytes with stride = width rounded up to 128.
    // A map of no bytes is nothing to paint; refused (-998 and a line): a
    // negative size (the fill would run past the buffer) or one past 2^31 - 1
    // (the row offsets would overflow).
    const int64_t stride = (static_cast<int64_t>(m.width) + 127) & ~static_cast<int64_t>(127);
    if (stride * m.height < 0 || stride * m.height > INT_MAX) {
        TOCRA_LOGE("%s invalid map: width[%d] height[%d] face_num[%d]\n", "BoxFilter_TocraAPI", m.width, m.height,
                   m.faceNum);
        return TOCRA_NULL_POINTER;
    }
    m.stride = static_cast<int32_t>(stride);

    tocra::PaintFaceMap(m, p.background);
    const int ret = tocra::StartPoolAndSmooth(m);
    if (ret != 0) return ret;

    MultiThread_destory();
    platform_cacheflush(m.map, m.map + static_cast<size_t>(m.stride) * static_cast<size_t>(m.height));
    TOCRA_LOGI("exit func %s\n", "BoxFilter_TocraAPI");
    return TOCRA_OK;
}
