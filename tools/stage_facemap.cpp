// The face weight map and the statistics of the reference frame:
// BoxfilterYuv2RgbHist_TocraAPI paints the faces into a half-size map and
// smooths it, and makes the half-size luma, R, G and B planes with their
// cumulative histograms, the up-scaling error of the luma and its mean.
#include <algorithm>
#include <chrono>
#include <cstring>

#include <opencv2/imgproc.hpp>

#include "stages.h"
#include "util.h"

namespace demo {
namespace {

// The box filter needs width > 2R and height / 4 > 2R on the half-size map.
int LargestRadius(int mapWidth, int mapHeight) {
    return std::max(0, std::min((mapWidth - 1) / 2, (mapHeight / 4 - 1) / 2));
}

uint32_t ReadU32(const uint8_t* p) {
    uint32_t v;
    memcpy(&v, p, sizeof v);
    return v;
}

}  // namespace

FaceMap BuildFaceMap(const YuvFrame& reference, const std::vector<cv::Rect>& faces, FaceParams params,
                     LibraryLog& log) {
    FaceMap fm;
    const int width = reference.width();
    const int height = reference.height();
    const int mapWidth = width / 2;
    const int mapHeight = height / 2;
    const int mapStride = Align128(mapWidth);

    const int largest = LargestRadius(mapWidth, mapHeight);
    if (params.radius > largest) {
        fm.notes.push_back(
            cv::format("Smoothing radius lowered from %d to %d: the box filter needs a half-size map "
                       "wider than 2R and a quarter of its height above 2R.",
                       params.radius, largest));
        params.radius = largest;
    }
    fm.used = params;

    // The stage reads an NV12 frame: luma, then the interleaved chroma rows
    // right behind it with the same stride. A planar reference is copied
    // into such a buffer first.
    YuvFrame nv12;
    const YuvFrame* source = &reference;
    if (reference.layout() != Layout::kNv12) {
        nv12 = YuvFrame(width, height, Layout::kNv12);
        nv12.FromI420(reference.ToI420());
        source = &nv12;
    }
    const int stride = source->lumaPitch();

    const int halfW = width >> 1;
    const int halfH = height >> 1;
    const int halfStride = Align128(halfW);
    const size_t plane = static_cast<size_t>(halfH) * halfStride;
    const size_t histOffset = 4 * plane;
    const size_t errorOffset = histOffset + 4096;
    const size_t meanOffset = errorOffset + static_cast<size_t>(height) * stride;

    GraphicBuffer map(static_cast<size_t>(mapStride) * mapHeight);
    GraphicBuffer result(meanOffset + sizeof(uint32_t));
    const size_t workSize = static_cast<size_t>(mapWidth) * mapHeight * 4 +
                            static_cast<size_t>(mapStride) * (2 * params.radius + (mapHeight + 3) / 4) * 4;
    GraphicBuffer work(workSize);
    GraphicBuffer faceRecords(faces.size() * sizeof(FaceInfo));
    FaceInfo* face = reinterpret_cast<FaceInfo*>(faceRecords.data());
    for (size_t i = 0; i < faces.size(); ++i) {
        face[i].id = static_cast<int32_t>(i);
        face[i].left = faces[i].x;
        face[i].top = faces[i].y;
        face[i].right = faces[i].x + faces[i].width;
        face[i].bottom = faces[i].y + faces[i].height;
    }

    BoxfilterYuvParams request;
    memset(&request, 0, sizeof request);
    request.hMap = map.handle();
    request.hFaces = faceRecords.handle();
    request.hWork = work.handle();
    request.workSize = static_cast<int32_t>(workSize);
    request.faceNum = static_cast<int32_t>(faces.size());
    request.nFaceAjustRatio = params.ajustRatio;
    request.nMargin = params.margin;
    request.mapWidth = mapWidth;
    request.mapHeight = mapHeight;
    request.nSmoothRadius = params.radius;
    request.background = 255;
    request.hSource = source->lumaHandle();
    request.hDest = result.handle();
    request.width = width;
    request.height = height;
    request.stride = stride;

    const auto start = std::chrono::steady_clock::now();
    fm.call.status = CallLogged(log, &fm.call.errors, [&] { return BoxfilterYuv2RgbHist_TocraAPI(&request); });
    fm.call.ms = MsSince(start);
    if (fm.call.status != TOCRA_OK) return fm;

    fm.map = cv::Mat(mapHeight, mapWidth, CV_8UC1, map.data(), mapStride).clone();
    uint8_t* r = result.data();
    fm.smallLuma = cv::Mat(halfH, halfW, CV_8UC1, r, halfStride).clone();
    const cv::Mat planes[3] = {cv::Mat(halfH, halfW, CV_8UC1, r + 3 * plane, halfStride),   // B
                               cv::Mat(halfH, halfW, CV_8UC1, r + 2 * plane, halfStride),   // G
                               cv::Mat(halfH, halfW, CV_8UC1, r + 1 * plane, halfStride)};  // R
    cv::merge(planes, 3, fm.smallBgr);
    for (int h = 0; h < 4; ++h) {
        for (int v = 0; v < 256; ++v) fm.cumHist[h][v] = ReadU32(r + histOffset + 1024 * h + 4 * v);
    }
    cv::Mat error(height, width, CV_8SC1, r + errorOffset, stride);
    error.convertTo(fm.upscaleError, CV_8UC1, 1.0, 128.0);
    fm.meanLuma = ReadU32(r + meanOffset);
    return fm;
}

}  // namespace demo
