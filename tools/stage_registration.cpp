// Registration of one frame onto the reference: the RANSAC request built from
// the matches, then Ransac_Regis_TocraAPI, which filters the pairs, fits and
// checks the homography, warps the frame into its output slot and returns
// the registration area.
#include <chrono>
#include <cstring>

#include "stages.h"
#include "util.h"

namespace demo {

RegistrationRecords::RegistrationRecords(const YuvFrame& reference, const std::vector<YuvFrame>& outputs)
    : input_(sizeof(tagST_REGIS_INPUT_RECORD)), output_(sizeof(tagST_REGIS_OUTPUT_RECORD)) {
    tagST_REGIS_INPUT_RECORD* in = input();
    in->refPic = reference.PictureRecord();
    tagST_REGIS_OUTPUT_RECORD* out = output();
    for (size_t k = 1; k < outputs.size() && k < TOCRA_OUT_PIC_SLOTS; ++k) {
        out->outPic[k] = outputs[k].PictureRecord();
    }
}

Registration RegisterFrame(int k, const YuvFrame& frame, const Features& reference, const Features& features,
                           const std::vector<cv::DMatch>& matches, int scale, RegistrationRecords& records,
                           LibraryLog& log) {
    Registration reg;
    const int n = static_cast<int>(matches.size());
    reg.matches = n;

    // Buffers of the RANSAC request: the match indices and distances in, the
    // point pairs out (matchNum pairs of float x, y each).
    GraphicBuffer refPoints(static_cast<size_t>(n) * 2 * sizeof(float));
    GraphicBuffer framePoints(static_cast<size_t>(n) * 2 * sizeof(float));
    GraphicBuffer queryIdx(static_cast<size_t>(n) * sizeof(uint16_t));
    GraphicBuffer trainIdx(static_cast<size_t>(n) * sizeof(uint16_t));
    GraphicBuffer distances(static_cast<size_t>(n) * sizeof(float));
    uint16_t* query = reinterpret_cast<uint16_t*>(queryIdx.data());
    uint16_t* train = reinterpret_cast<uint16_t*>(trainIdx.data());
    float* dist = reinterpret_cast<float*>(distances.data());
    for (int i = 0; i < n; ++i) {
        query[i] = static_cast<uint16_t>(matches[static_cast<size_t>(i)].queryIdx);  // frame keypoint
        train[i] = static_cast<uint16_t>(matches[static_cast<size_t>(i)].trainIdx);  // reference keypoint
        dist[i] = matches[static_cast<size_t>(i)].distance;
    }

    GraphicBuffer requestBuffer(sizeof(tagST_RANSAC_REQUEST));
    tagST_RANSAC_REQUEST* ransac = reinterpret_cast<tagST_RANSAC_REQUEST*>(requestBuffer.data());
    ransac->refPointBuf = refPoints.handle();
    ransac->matchPointBuf = framePoints.handle();
    ransac->pointNum = n;
    ransac->queryIdx = queryIdx.handle();
    ransac->trainIdx = trainIdx.handle();
    ransac->pDistance = distances.handle();
    ransac->matchNum = n;
    ransac->scale = scale;  // keypoint coordinates -> frame coordinates
    ransac->reserved = 0;
    ransac->refKeypoints = reference.keypoints.handle();
    ransac->matchKeypoints = features.keypoints.handle();

    // The registration input record: this frame's picture and its pair
    // buffers under index k. The pair count is filled in by the library from
    // the RANSAC survivors.
    tagST_REGIS_INPUT_RECORD* in = records.input();
    in->srcPic = frame.PictureRecord();
    in->framePairs[k - 1].refPointBuf = refPoints.handle();
    in->framePairs[k - 1].matchPointBuf = framePoints.handle();
    in->framePairs[k - 1].pointNum = 0;
    tagST_REGIS_OUTPUT_RECORD* out = records.output();
    memset(&out->area, 0, sizeof out->area);

    tagST_RANSAC_REGIS_REQUEST request;
    request.hRansacRequest = requestBuffer.handle();
    request.hInput = records.inputHandle();
    request.hOutput = records.outputHandle();
    request.frameIndex = k;

    const auto start = std::chrono::steady_clock::now();
    reg.call.status = CallLogged(log, &reg.call.errors, [&] { return Ransac_Regis_TocraAPI(&request); });
    reg.call.ms = MsSince(start);
    reg.survivors = ransac->pointNum;

    if (reg.call.status == TOCRA_OK) {
        reg.hasArea = true;
        reg.area = out->area;
        // The survivors are compacted to the front of the pair buffers, in
        // frame coordinates.
        const float* r = reinterpret_cast<const float*>(refPoints.data());
        const float* f = reinterpret_cast<const float*>(framePoints.data());
        for (int i = 0; i < reg.survivors && i < n; ++i) {
            reg.refPoints.emplace_back(r[2 * i], r[2 * i + 1]);
            reg.framePoints.emplace_back(f[2 * i], f[2 * i + 1]);
        }
    }
    // The pair buffers go away with this call: leave no stale handles behind.
    in->framePairs[k - 1].refPointBuf = 0;
    in->framePairs[k - 1].matchPointBuf = 0;
    return reg;
}

}  // namespace demo
