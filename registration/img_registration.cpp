// Aligning one frame onto the reference: a least-squares homography on the
// RANSAC survivors, the motion check with its registration area, and the
// warp into the output picture of the frame's slot.
#include <algorithm>
#include <cstdint>

#include "brimvel_tocra.h"
#include "frame/log.h"

extern "C" int ImgRegistration_Query(int* size, int* other, int width, int height) {
    if (size == nullptr || other == nullptr) {
        TOCRA_LOGE("ImgRegistration_Query output pointer is null\n");
        return TOCRA_NULL_POINTER;
    }
    // Unsigned 32-bit arithmetic, the halving a shift.
    const uint32_t pixels = static_cast<uint32_t>(width) * static_cast<uint32_t>(height) * 3u;
    *size = static_cast<int>(((pixels >> 1) + 48u) * 4u);
    *other = 0;
    return TOCRA_OK;
}

namespace {

// The line number that goes with the tag "ImgRegistration" to iMalloc and
// iFree: a fixed value, whatever line of this file the call is on.
constexpr int kScratchTagLine = 166;

// Each address is checked where it is first used; a null one is refused
// with -998 and a line naming it.
bool Converted(const void* p, const char* name) {
    if (p != nullptr) return true;
    TOCRA_LOGE("Reg ImgRegistration: %s is invalid\n", name);
    return false;
}

}  // namespace

// in: reference and source pictures with plane addresses, the surviving
// pairs; out: the picture of slot frameIndex (0 to 5) receives the aligned
// frame, `area` the registration area. The scratch serves the refit and the
// warp's column table, so registration allocates once per frame.
//
// Checks of our own, each right before the first use of what it checks: the
// pair arrays before the refit (-998), the slot and the planes that the warp
// reads and writes after the motion check (-998). Too few pairs or a rejected
// motion therefore answer 3 whatever those addresses are. The reference
// planes are never read.
extern "C" int ImgRegistration(tagST_IMGREGISTRATION_PARAMS_IN* in, tagST_IMGREGISTRATION_PARAMS_OUT* out,
                               int frameIndex) {
    if (in == nullptr || out == nullptr) {
        TOCRA_LOGE("Reg ImgRegistration: param pointer is invalid\n");
        return TOCRA_NULL_POINTER;
    }
    float H[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0};
    const int pointNum = in->matchPairs.pointNum;
    if (pointNum < 5) {
        TOCRA_LOGE("Reg ImgRegistration: not enough keypoints = %d\n", pointNum);
        return TOCRA_REG_REJECTED;
    }
    if (!Converted(in->matchPairs.pRefPoint, "matchPairs.pRefPoint") ||
        !Converted(in->matchPairs.pMatchPoint, "matchPairs.pMatchPoint"))
        return TOCRA_NULL_POINTER;

    const uint64_t forWarp = static_cast<uint64_t>(static_cast<uint32_t>(in->refPic.width)) * 100u;
    const uint64_t forRefit = static_cast<uint64_t>(pointNum) * 176u + 224u;
    unsigned char* scratch = static_cast<unsigned char*>(
        iMalloc(static_cast<size_t>(std::max(forWarp, forRefit)), "ImgRegistration", kScratchTagLine));
    if (scratch == nullptr) {
        TOCRA_LOGE("Reg ImgRegistration: malloc failed\n");
        return TOCRA_NO_MEMORY;
    }

    RefineHomography(&in->matchPairs, H, scratch);

    int ret = MotionEstimation(H, in->refPic.width, in->refPic.height, &out->area);
    if (ret != 0) {
        TOCRA_LOGE("Reg ImgRegistration: MotionEstimation fail %d\n", ret);
        iFree(scratch, "ImgRegistration", kScratchTagLine);
        return ret;
    }

    // Slots 0 to 5 are inside the output record.
    if (frameIndex < 0 || frameIndex >= TOCRA_OUT_PIC_SLOTS) {
        TOCRA_LOGE("Reg ImgRegistration: frame index %d out of range\n", frameIndex);
        iFree(scratch, "ImgRegistration", kScratchTagLine);
        return TOCRA_NULL_POINTER;
    }
    const tagST_PIC& s = in->srcPic;
    const tagST_PIC& o = out->outPic[frameIndex];
    const bool planar = in->refPic.format == TOCRA_FORMAT_YUV420;
    if (!Converted(s.pY, "srcPic.pY") || !Converted(s.pU, "srcPic.pU") || (planar && !Converted(s.pV, "srcPic.pV")) ||
        !Converted(o.pY, "outPic.pY") || !Converted(o.pU, "outPic.pU") || (planar && !Converted(o.pV, "outPic.pV"))) {
        iFree(scratch, "ImgRegistration", kScratchTagLine);
        return TOCRA_NULL_POINTER;
    }
    ret = AffineTransform_neon(&in->refPic, &in->srcPic, &out->outPic[frameIndex], H, &out->area, scratch);
    iFree(scratch, "ImgRegistration", kScratchTagLine);
    return ret;
}
