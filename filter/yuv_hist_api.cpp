// Statistics of one YUV frame in a single call: the half-size luma, the
// up-sampling error of the full luma against it, half-size B, G and R with
// their block histograms, the luma histogram and its mean; plus the face
// weight map of the box filter.
#include <climits>
#include <cstdint>
#include <cstring>

#include "brimvel_tocra.h"
#include "filter/bands.h"
#include "filter/face_map.h"
#include "filter/filter_kernels.h"
#include "frame/entry_guard.h"
#include "frame/hooks.h"
#include "frame/log.h"
#include "frame/picture.h"
#include "frame/platform.h"

namespace {

// Result layout, S = (height / 2) * Pitch128(width / 2):
//   0      half-size luma       S      R plane
//   2S     G plane              3S     B plane
//   4S     luma cumulative histogram (256 x u32), then R, G and B ones
//   4S + 4096                  luma up-sampling error, height * stride bytes
//   4S + 4096 + height*stride  mean half-size luma (u32)
struct Layout {
    int w2, h2, s2;
    size_t S;
    size_t error;  // offset of the error plane
    size_t mean;   // offset of the mean word
    size_t size;   // whole result
};

Layout ResultLayout(int width, int height, int stride) {
    Layout l;
    l.w2 = width >> 1;
    l.h2 = height >> 1;
    l.s2 = tocra::Pitch128(l.w2);
    l.S = static_cast<size_t>(l.h2) * static_cast<size_t>(l.s2);
    l.error = 4 * l.S + 4096;
    l.mean = l.error + static_cast<size_t>(height) * static_cast<size_t>(stride);
    l.size = l.mean + 4;
    return l;
}

// Frames need at least 2 x 2 pixels (a half-size plane to divide by), a
// stride of at least the width, and a result that fits in 2^31 - 1 bytes.
// The down-scale of an odd height and an odd width reads the byte at column
// `width` of the row after the luma (the chroma plane's first row): a frame
// whose chroma plane is a single row of exactly `width` bytes ends before
// it, and is refused.
bool FrameOk(int width, int height, int stride) {
    if (width < 2 || height < 2 || stride < width) return false;
    if ((height & 1) && (width & 1) && static_cast<int64_t>(width) >= static_cast<int64_t>(height >> 1) * stride) {
        return false;
    }
    const int64_t s2 = (static_cast<int64_t>(width >> 1) + 127) & ~static_cast<int64_t>(127);
    const int64_t size = 4 * (height >> 1) * s2 + 4096 + static_cast<int64_t>(height) * stride + 4;
    const int64_t source = static_cast<int64_t>(height) * stride + static_cast<int64_t>(height >> 1) * stride;
    return size <= INT_MAX && source <= INT_MAX;
}

void StoreU32(uint8_t* at, uint32_t v) { memcpy(at, &v, sizeof(v)); }

}  // namespace

// frame: height rows of luma (stride bytes each), then the interleaved
// chroma plane (height / 2 rows of stride bytes) height * stride bytes
// behind the frame's start. dst: the result laid out above. Frames below
// 2 x 2, or with a stride below the width, are refused with a log line.
//
// The steps read and write nothing outside the frame and the result:
// - The colour conversion's last band, with an odd row count, would pair its
//   last row with the row after both planes: half-size luma row h2 is the R
//   plane that band 0 is writing, chroma row h2 lies past the frame. That
//   row is not read (the last row stands in for it in the blocks) and not
//   written (it would be the luma histogram and the B and G planes' first
//   rows, which band 0 writes at the same time).
// - With an odd half width, the last step of a row converts column w2: the
//   half-size luma's padding byte (s2 > w2) and the chroma pair at bytes
//   2 w2 and 2 w2 + 1, in the row's padding or the next chroma row. For the
//   last chroma row of a frame whose stride is below 2 w2 + 2 that pair lies
//   past the frame: the last band is then refused with a line, like a band
//   of odd size, and its counters go into the merge as they were.
extern "C" void DownScaleYuv2RgbHist_Neon(const uint8_t* frame, uint8_t* dst, int width, int height, int stride) {
    if (frame == nullptr || dst == nullptr || !FrameOk(width, height, stride)) {
        TOCRA_LOGE("%s invalid input: width[%d] height[%d] stride[%d]\n", "DownScaleYuv2RgbHist_Neon", width, height,
                   stride);
        return;
    }
    const Layout l = ResultLayout(width, height, stride);
    const uint8_t* chroma = frame + static_cast<size_t>(height) * static_cast<size_t>(stride);
    uint32_t set[4 * 3 * 256];
    memset(set, 0, sizeof(set));

    tocra::DownScaleX4_MT(frame, dst, height, width, stride, l.s2);
    MT_UpScale4X_NEON(dst, l.h2, l.w2, l.s2, stride, dst + l.error);
    UpScaleError_Neon_MT(frame, dst + l.error, reinterpret_cast<int8_t*>(dst + l.error), width, height, stride);

    GetCumSum_Neon_MT(dst, l.w2, l.h2, l.s2, set);
    uint32_t luma[256];
    for (int v = 0; v < 256; ++v) luma[v] = set[v] + set[256 + v] + set[512 + v] + set[768 + v];
    memcpy(dst + 4 * l.S, luma, sizeof(luma));

    // Sum of the levels from the cumulative counts (wrapping u32), then the
    // rounded mean over the padded plane h2 * s2 (not the pixel count).
    uint32_t sum = 0;
    for (int v = 255; v >= 1; --v) sum += static_cast<uint32_t>(v) * (luma[v] - luma[v - 1]);
    const int32_t S = static_cast<int32_t>(l.S);
    const int32_t mean = static_cast<int32_t>(sum + static_cast<uint32_t>(S >> 1)) / S;
    StoreU32(dst + l.mean, static_cast<uint32_t>(mean));

    const size_t S1 = l.S;
    const tocra::RgbPlanes planes{dst, chroma, dst + 3 * S1, dst + 2 * S1, dst + S1, l.s2, stride};
    const bool pastFrame = (l.w2 & 1) && stride < 2 * l.w2 + 2;
    tocra::Yuv2RgbFourBands(planes, set, l.w2, l.h2, tocra::RowAfter::kRepeat, pastFrame);
    // A band the conversion refused left its counters as the luma histogram
    // left them; they are added in like the others.
    uint32_t merged[3][256];
    for (int c = 0; c < 3; ++c) {  // c: 0 R, 1 G, 2 B; a band's set is B, G, R
        const int ch = 2 - c;
        for (int v = 0; v < 256; ++v) {
            merged[c][v] =
                set[ch * 256 + v] + set[768 + ch * 256 + v] + set[1536 + ch * 256 + v] + set[2304 + ch * 256 + v];
        }
    }
    memcpy(dst + 4 * l.S + 1024, merged, sizeof(merged));
}

// Buffers: map handle Pitch128(mapWidth) * mapHeight bytes; faces faceNum
// 60-byte records; work workSize bytes (see BoxFiltering_neon; only used
// when smoothing runs); source the frame as DownScaleYuv2RgbHist_Neon reads
// it; destination its result.
extern "C" int BoxfilterYuv2RgbHist_TocraAPI(BoxfilterYuvParams* params) {
    TOCRA_ONE_CALL_AT_A_TIME("BoxfilterYuv2RgbHist_TocraAPI");
    if (params == nullptr) {
        TOCRA_LOGE("%s null request\n", "BoxfilterYuv2RgbHist_TocraAPI");
        return TOCRA_NULL_POINTER;
    }
    BoxfilterYuvParams p;
    memcpy(&p, params, sizeof(p));
    tocra::FaceMap m = tocra::FaceMapOf(p, p.hMap, p.mapWidth, p.mapHeight);
    const uint8_t* source = static_cast<const uint8_t*>(tocra::ConvertAddr(p.hSource));
    uint8_t* dest = static_cast<uint8_t*>(tocra::ConvertAddr(p.hDest));
    if (dest == nullptr || source == nullptr || m.faces == nullptr || m.map == nullptr) {
        TOCRA_LOGI("BoxfilterYuv2RgbHist convert addr pointer error\n");
        return TOCRA_THREAD_FAILED;
    }
    if (tocra::PrepareFaceMap("BoxfilterYuv2RgbHist_TocraAPI", m) != 0) return TOCRA_NULL_POINTER;
    if (!FrameOk(p.width, p.height, p.stride)) {
        TOCRA_LOGE("%s invalid frame: width[%d] height[%d] stride[%d]\n", "BoxfilterYuv2RgbHist_TocraAPI", p.width,
                   p.height, p.stride);
        return TOCRA_NULL_POINTER;
    }

    tocra::PaintFaceMap(m, 255);
    const int ret = tocra::StartPoolAndSmooth(m);
    if (ret != 0) return ret;

    const tocra::Stamp start = tocra::Now();
    DownScaleYuv2RgbHist_Neon(source, dest, p.width, p.height, p.stride);
    tocra::PrintElapsed("DownScaleYuv2RgbHist_Neon", start);

    MultiThread_destory();
    const size_t mapBytes = static_cast<size_t>(m.stride) * static_cast<size_t>(m.height);
    platform_cacheflush(m.map, m.map + mapBytes);
    const size_t destBytes = static_cast<size_t>(p.height) * static_cast<size_t>(p.stride) +
                             2 * static_cast<size_t>(p.height) * static_cast<size_t>(m.stride) + 4100;
    platform_cacheflush(dest, dest + destBytes);
    TOCRA_LOGI("exit func %s\n", "BoxfilterYuv2RgbHist_TocraAPI");
    return TOCRA_OK;
}
