// The registration entry points of the camera pipeline.
//
// RansacEst_TocraAPI turns keypoints and k-nearest-neighbour matches into
// RANSAC-filtered point pairs; Registration_TocraAPI aligns a frame with
// them; Ransac_Regis_TocraAPI chains both for one frame index. The records
// hold 32-bit buffer handles, converted through the pipeline's hook.
//
// What the caller guarantees (nothing in the records tells the sizes):
// - the point buffers hold matchNum pairs of two floats each (and pointNum
//   pairs when that is more: RANSAC reads pointNum), the index buffers
//   matchNum uint16 entries, and every index names a keypoint inside its
//   keypoint buffer;
// - the planes of the input and output pictures hold a frame of the record's
//   size: planar luma pitch (width + 127) & ~127, chroma pitch
//   ((width / 2) + 127) & ~127; NV12 planes with pitch `width`.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "brimvel_tocra.h"
#include "frame/entry_guard.h"
#include "frame/hooks.h"
#include "frame/log.h"
#include "frame/picture.h"
#include "frame/platform.h"
#include "registration/homography.h"

using tocra::ConvertAddr;
using tocra::InvalidateBuffer;

namespace {

constexpr int kRansacIterations = 100;
constexpr float kFirstThreshold = 160.0f;
constexpr float kSecondThreshold = 80.0f;
constexpr float kConfidence = 0.9995f;       // 0x3F7FDF3B
constexpr float kKeypointScale = 0.015625f;  // 1/64 pixel
// The line number that goes with the tag "RansacEst_TocraAPI" to iMalloc and
// iFree: a fixed value, whatever line of this file the call is on.
constexpr int kScratchTagLine = 261;

// The records hold slots 0 to 5: the output record six pictures, the input
// record a pair record for each (frame 0's is the input record's last three
// words before frame 1's). Anything else lies outside them and is refused.
bool ValidFrameIndex(int k) {
    if (k >= 0 && k < TOCRA_OUT_PIC_SLOTS) return true;
    TOCRA_LOGE("Reg frame index %d out of range\n", k);
    return false;
}

// Byte offset of frame k's pair record inside the input record: three words
// per frame, frame 1's at word 22 (counted from 0). Frame 0's falls on the
// last three of the eight words after the source picture.
size_t PairRecordOffset(int k) {
    return offsetof(tagST_REGIS_INPUT_RECORD, framePairs) + sizeof(tagST_MATCH_PAIRS_HANDLE) * static_cast<size_t>(k) -
           sizeof(tagST_MATCH_PAIRS_HANDLE);
}

tagST_MATCH_PAIRS_HANDLE ReadPairRecord(const tagST_REGIS_INPUT_RECORD* A, int k) {
    tagST_MATCH_PAIRS_HANDLE r;
    memcpy(&r, reinterpret_cast<const unsigned char*>(A) + PairRecordOffset(k), sizeof r);
    return r;
}

void Flush(const void* start, size_t bytes) { platform_cacheflush(start, static_cast<const uint8_t*>(start) + bytes); }

}  // namespace

extern "C" int RansacEst_TocraAPI(tagST_RANSAC_REQUEST* request) {
    TOCRA_ONE_CALL_AT_A_TIME("RansacEst_TocraAPI");
    if (request == nullptr) {
        TOCRA_LOGE("ransac request pointer is invalid\n");
        return TOCRA_NULL_POINTER;
    }
    InvalidateBuffer(request);
    float* refPoints = static_cast<float*>(ConvertAddr(request->refPointBuf));
    float* matchPoints = static_cast<float*>(ConvertAddr(request->matchPointBuf));
    if (refPoints == nullptr || matchPoints == nullptr) {
        TOCRA_LOGE("matchPairs.pRefPoint = %p", static_cast<void*>(refPoints));
        TOCRA_LOGE("matchPairs.pMatchPoint = %p", static_cast<void*>(matchPoints));
        TOCRA_LOGE("FunConvert2Addr error!");
        return TOCRA_NULL_POINTER;
    }
    tagST_MATCH_PAIRS pairs{refPoints, matchPoints, request->pointNum};
    InvalidateBuffer(refPoints);
    TOCRA_LOGI("ransac received match point num = %d", request->matchNum);
    if (pairs.pointNum < 5) {
        TOCRA_LOGE("ransac RansacEstimation: not enough keypoints = %d\n", pairs.pointNum);
        return TOCRA_REG_REJECTED;
    }

    const uint16_t* queryIdx = static_cast<const uint16_t*>(ConvertAddr(request->queryIdx));
    const uint16_t* trainIdx = static_cast<const uint16_t*>(ConvertAddr(request->trainIdx));
    const void* distance = ConvertAddr(request->pDistance);
    if (queryIdx == nullptr || trainIdx == nullptr || distance == nullptr) {
        TOCRA_LOGE("knnResult.queryIdx = %p", static_cast<const void*>(queryIdx));
        TOCRA_LOGE("knnResult.trainIdx = %p", static_cast<const void*>(trainIdx));
        TOCRA_LOGE("knnResult.pDistance = %p", distance);
        TOCRA_LOGE("FunConvert2Addr error!");
        return TOCRA_NULL_POINTER;
    }
    const tagST_KEYPOINT* refKeypoints = static_cast<const tagST_KEYPOINT*>(ConvertAddr(request->refKeypoints));
    const tagST_KEYPOINT* matchKeypoints = static_cast<const tagST_KEYPOINT*>(ConvertAddr(request->matchKeypoints));
    if (refKeypoints == nullptr || matchKeypoints == nullptr) {
        TOCRA_LOGE("RefImgKeypoints = %p", static_cast<const void*>(refKeypoints));
        TOCRA_LOGE("MatchImgKeypoints = %p", static_cast<const void*>(matchKeypoints));
        TOCRA_LOGE("FunConvert2Addr error!");
        return TOCRA_NULL_POINTER;
    }
    // Checks of our own. RANSAC reads pointNum pairs of the caller's arrays
    // and uses, of the matchNum x 80-byte scratch, two mask bytes per pair
    // and the solver's work area (after rounding up to a word): a scratch
    // smaller than that is refused, as is a byte count that would not fit
    // the 32-bit product the size is described with.
    const int matchNum = request->matchNum;
    const int64_t scratchUse = 2 * static_cast<int64_t>(pairs.pointNum) + 3 + tocra::kJacobiWorkBytes;
    if (matchNum > INT32_MAX / 80 || static_cast<int64_t>(matchNum) * 80 < scratchUse) {
        TOCRA_LOGE("ransac match number %d does not cover point number %d\n", matchNum, pairs.pointNum);
        return TOCRA_NULL_POINTER;
    }

    for (int i = 0; i < matchNum; ++i) {
        const tagST_KEYPOINT& r = refKeypoints[trainIdx[i]];
        const tagST_KEYPOINT& m = matchKeypoints[queryIdx[i]];
        refPoints[2 * i] = static_cast<float>(r.x) * kKeypointScale;
        refPoints[2 * i + 1] = static_cast<float>(r.y) * kKeypointScale;
        matchPoints[2 * i] = static_cast<float>(m.x) * kKeypointScale;
        matchPoints[2 * i + 1] = static_cast<float>(m.y) * kKeypointScale;
    }

    unsigned char* scratch = static_cast<unsigned char*>(
        iMalloc(static_cast<size_t>(matchNum) * 80u, "RansacEst_TocraAPI", kScratchTagLine));
    if (scratch == nullptr) {
        TOCRA_LOGI("ransac malloc failed!");
        return TOCRA_NO_MEMORY;
    }
    float H[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0};
    tagRANSAC_PARAMS loose{kRansacIterations, kFirstThreshold, kConfidence};
    RansacEstimation(&pairs, H, &loose, scratch);
    TOCRA_LOGI("ransac pstMatchPairs->pointNum after  RansacEstimation 1st = %d\n", pairs.pointNum);

    int ret = TOCRA_OK;
    if (pairs.pointNum < 5) {
        ret = TOCRA_REG_REJECTED;
    } else {
        const float scale = static_cast<float>(request->scale);
        for (int i = 0; i < 2 * pairs.pointNum; ++i) {
            refPoints[i] *= scale;
            matchPoints[i] *= scale;
        }
        tagRANSAC_PARAMS tight{kRansacIterations, kSecondThreshold, kConfidence};
        RansacEstimation(&pairs, H, &tight, scratch);
        TOCRA_LOGI("ransac pstMatchPairs->pointNum after  RansacEstimation 2nd = %d", pairs.pointNum);
    }
    request->pointNum = pairs.pointNum;
    iFree(scratch, "RansacEst_TocraAPI", kScratchTagLine);
    // The pairs and the count are results for the pipeline too.
    Flush(refPoints, static_cast<size_t>(matchNum) * 8u);
    Flush(matchPoints, static_cast<size_t>(matchNum) * 8u);
    Flush(request, sizeof *request);
    return ret;
}

extern "C" int Registration_TocraAPI(tagST_REGISTRATION_REQUEST* request) {
    TOCRA_ONE_CALL_AT_A_TIME("Registration_TocraAPI");
    if (request == nullptr || request->pInput == nullptr || request->pOutput == nullptr) {
        TOCRA_LOGE("Reg input param pointer is invalid");
        return TOCRA_NULL_POINTER;
    }
    tagST_REGIS_INPUT_RECORD* A = request->pInput;
    tagST_REGIS_OUTPUT_RECORD* B = request->pOutput;
    const int W = A->refPic.width, H = A->refPic.height;
    const int stride = tocra::Pitch128(W);
    TOCRA_LOGI("Reg image width = %d, height = %d, stride = %d\n", W, H, stride);
    // Frames whose luma plane would not fit a 32-bit size are not supported
    // either: no pipeline buffer is that large.
    if (W % 8 != 0 || H % 8 != 0 || W < 64 || H < 64 ||
        ((static_cast<int64_t>(W) + 127) & ~int64_t{127}) * H > INT32_MAX) {
        TOCRA_LOGE("ImageSize input size is not supported");
        return TOCRA_SIZE_NOT_SUPPORTED;
    }
    const int k = request->frameIndex;
    if (!ValidFrameIndex(k)) return TOCRA_NULL_POINTER;

    // The conversions are not checked here: ImgRegistration checks the pair
    // buffers before the refit reads them and the planes before the warp
    // touches them, so too few pairs or a rejected motion answer 3 whatever
    // the handles gave. The reference planes are never read.
    tagST_IMGREGISTRATION_PARAMS_IN in{};
    in.refPic = {W,
                 H,
                 stride,
                 static_cast<uint8_t*>(ConvertAddr(A->refPic.hY)),
                 static_cast<uint8_t*>(ConvertAddr(A->refPic.hU)),
                 static_cast<uint8_t*>(ConvertAddr(A->refPic.hV)),
                 A->refPic.format};
    in.srcPic = {W,
                 H,
                 stride,
                 static_cast<uint8_t*>(ConvertAddr(A->srcPic.hY)),
                 static_cast<uint8_t*>(ConvertAddr(A->srcPic.hU)),
                 static_cast<uint8_t*>(ConvertAddr(A->srcPic.hV)),
                 0};
    const tagST_MATCH_PAIRS_HANDLE fp = ReadPairRecord(A, k);
    in.matchPairs = {static_cast<float*>(ConvertAddr(fp.refPointBuf)),
                     static_cast<float*>(ConvertAddr(fp.matchPointBuf)), fp.pointNum};
    tagST_IMGREGISTRATION_PARAMS_OUT out{};
    const tagST_PIC_HANDLE& ob = B->outPic[k];
    out.outPic[k] = {W,
                     H,
                     stride,
                     static_cast<uint8_t*>(ConvertAddr(ob.hY)),
                     static_cast<uint8_t*>(ConvertAddr(ob.hU)),
                     static_cast<uint8_t*>(ConvertAddr(ob.hV)),
                     0};

    TOCRA_LOGI("Reg Registration received match pairs num = %d\n", in.matchPairs.pointNum);
    const int ret = ImgRegistration(&in, &out, k);
    if (ret != 0) {
        TOCRA_LOGE("Reg ImgRegistration fail %d\n", ret);
        return ret;
    }
    TOCRA_LOGI("Reg --RECT18--OUT ROI 1 = (%d, %d), - (%d, %d).\n", out.area.x, out.area.y, out.area.width,
               out.area.height);
    B->area = out.area;
    TOCRA_LOGI("Reg --RECT18--OUT ROI 2 = (%d, %d), - (%d, %d).\n", B->area.x, B->area.y, B->area.width,
               B->area.height);

    // The warp ran, so the planes it wrote converted.
    const bool planar = A->refPic.format == TOCRA_FORMAT_YUV420;
    const tagST_PIC& o = out.outPic[k];
    const size_t chromaBytes = static_cast<size_t>(tocra::ChromaPitch128(W)) * static_cast<size_t>(H / 2);
    Flush(o.pY, static_cast<size_t>(H) * static_cast<size_t>(stride));
    if (planar) {
        Flush(o.pU, chromaBytes);
        Flush(o.pV, chromaBytes);
    } else {
        // The interleaved plane is written with pitch `width`.
        Flush(o.pU, std::max(chromaBytes, static_cast<size_t>(W) * static_cast<size_t>(H / 2)));
    }
    Flush(&B->area, sizeof B->area);
    return TOCRA_OK;
}

extern "C" int Ransac_Regis_TocraAPI(tagST_RANSAC_REGIS_REQUEST* request) {
    TOCRA_ONE_CALL_AT_A_TIME("Ransac_Regis_TocraAPI");
    if (request == nullptr) {
        TOCRA_LOGE("Reg input param pointer is invalid");
        return TOCRA_NULL_POINTER;
    }
    tagST_RANSAC_REQUEST* ransac = static_cast<tagST_RANSAC_REQUEST*>(ConvertAddr(request->hRansacRequest));
    int ret = RansacEst_TocraAPI(ransac);
    if (ret != 0) {
        TOCRA_LOGE("ransac RansacEst_TocraAPI return error [%d]\n", ret);
        return ret;
    }
    TOCRA_LOGI("ransac RansacEst_TocraAPI end, ret = %d\n", 0);
    if (request->hInput == 0 || request->hOutput == 0) {
        TOCRA_LOGE("Reg input param pointer is invalid");
        return TOCRA_NULL_POINTER;
    }
    tagST_REGIS_INPUT_RECORD* input = static_cast<tagST_REGIS_INPUT_RECORD*>(ConvertAddr(request->hInput));
    tagST_REGIS_OUTPUT_RECORD* output = static_cast<tagST_REGIS_OUTPUT_RECORD*>(ConvertAddr(request->hOutput));
    if (input == nullptr || output == nullptr) {
        TOCRA_LOGE("Reg converted input pointer is invalid");
        return TOCRA_NULL_POINTER;
    }
    // The frame index is first used here, to find the pair record.
    const int k = request->frameIndex;
    if (!ValidFrameIndex(k)) return TOCRA_NULL_POINTER;
    InvalidateBuffer(input);
    unsigned char* pairRecord = reinterpret_cast<unsigned char*>(input) + PairRecordOffset(k);
    const int32_t kept = ransac->pointNum;
    memcpy(pairRecord + offsetof(tagST_MATCH_PAIRS_HANDLE, pointNum), &kept, sizeof kept);
    Flush(pairRecord, sizeof(tagST_MATCH_PAIRS_HANDLE));

    tagST_REGISTRATION_REQUEST reg{input, output, k};
    ret = Registration_TocraAPI(&reg);
    if (ret != 0) {
        TOCRA_LOGE("Reg Registration_TocraAPI have error [%d]!\n", ret);
        return ret;
    }
    TOCRA_LOGI("=============Reg Registration_TocraAPI for frame_Indx = %d end", k);
    return TOCRA_OK;
}
