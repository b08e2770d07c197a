#include "filter/face_map.h"

#include <climits>
#include <cstring>

#include "brimvel_tocra.h"
#include "frame/log.h"

namespace tocra {

int PrepareFaceMap(const char* api, FaceMap& m) {
    const int64_t stride = (static_cast<int64_t>(m.width) + 127) & ~static_cast<int64_t>(127);
    m.stride = 0;
    if (m.width <= 0 || m.height <= 0 || m.faceNum < 0 || stride * m.height > INT_MAX) {
        TOCRA_LOGE("%s invalid map: width[%d] height[%d] face_num[%d]\n", api, m.width, m.height, m.faceNum);
        return TOCRA_NULL_POINTER;
    }
    m.stride = static_cast<int32_t>(stride);
    return TOCRA_OK;
}

void PaintFaceMap(const FaceMap& m, uint8_t background) {
    memset(m.map, background, static_cast<size_t>(m.stride) * static_cast<size_t>(m.height));
    const uint8_t value = static_cast<uint8_t>(m.ratio & 255);
    for (int i = 0; i < m.faceNum; ++i) {
        FaceInfo f;
        memcpy(&f, m.faces + static_cast<size_t>(i) * sizeof(FaceInfo), sizeof(FaceInfo));
        TOCRA_LOGI("faceRect[%d] = (%d, %d), - (%d, %d).\n", i, f.left, f.top, f.right, f.bottom);
        // Full resolution to map resolution (shift rounds negatives down),
        // enlarged by the margin and clipped to the map. 64-bit, so that no
        // margin or coordinate can overflow.
        int64_t x0 = static_cast<int64_t>(f.left >> 1) - m.margin;
        int64_t y0 = static_cast<int64_t>(f.top >> 1) - m.margin;
        int64_t x1 = static_cast<int64_t>(f.right >> 1) + m.margin;
        int64_t y1 = static_cast<int64_t>(f.bottom >> 1) + m.margin;
        if (x0 < 0) x0 = 0;
        if (y0 < 0) y0 = 0;
        if (x1 > m.width) x1 = m.width;
        if (y1 > m.height) y1 = m.height;
        if (y0 >= y1 || x0 >= x1) continue;
        for (int64_t y = y0; y < y1; ++y) {
            memset(m.map + static_cast<size_t>(y) * m.stride + x0, value, static_cast<size_t>(x1 - x0));
        }
    }
    TOCRA_LOGI("nFaceAjustRatio = 0x%x\n", m.ratio);
}

int StartPoolAndSmooth(const FaceMap& m) {
    if (MultiThread_Init(4) != 0) {
        TOCRA_LOGE("BoxFiltering_neon MultiThread_Init fail\n");
        return TOCRA_THREAD_FAILED;
    }
    TOCRA_LOGI("[Face Parameter] face_num:%d nFaceAjustRatio:%d nSmoothRadius:%d, nMargin:%d", m.faceNum, m.ratio,
               m.radius, m.margin);
    if (m.ratio < 255 && m.faceNum != 0) {
        TOCRA_LOGI("BoxFilter BoxFiltering_neon start\n");
        const Stamp start = Now();
        const int ret = BoxFiltering_neon(m.map, m.map, m.width, m.stride, m.height, m.radius, m.work, m.workSize);
        PrintElapsed("BoxFiltering_neon", start);
        if (ret != 0) {
            TOCRA_LOGE("BoxFilter BoxFiltering_neon error %d\n", ret);
            return ret;
        }
    }
    return TOCRA_OK;
}

}  // namespace tocra
