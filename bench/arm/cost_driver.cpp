// Runs one kernel of the library a given number of times on inputs of a
// given size, for counting its instructions under the emulator:
//
//   cost_driver KERNEL WIDTH HEIGHT CALLS [COUNT]
//
// CALLS = 0 is the baseline: the same set-up (inputs made, worker pool
// started and stopped) with the kernel skipped, so that the difference of
// the two counts is the kernel's. COUNT is the number of keypoints of the
// descriptor runs (default 5,000). The last line on standard output is
// "cost-units N UNIT": what the count is divided by (output pixels,
// keypoints, pairs or calls). Exit status 3: this build has no form of the
// kernel.
//
// Which functions run comes from the kernels linked in (cost_kernels.h).
#include <sys/time.h>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/arm/cost_inputs.h"
#include "bench/arm/cost_kernels.h"

// The library's log lines go through this sink rather than the platform's
// (the executable's definition is the one the library's calls reach): each
// message is formatted as the platform's log formats it, but without the
// time of day and the process and thread ids, whose digits would make the
// count differ from run to run.
extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char text[1024];
    va_list ap;
    va_start(ap, fmt);
    const int n = vsnprintf(text, sizeof(text), fmt, ap);
    va_end(ap);
    fprintf(stderr, "%s %d %s\n", tag != nullptr ? tag : "", prio, text);
    return n < 0 ? 0 : n;
}

// The executables are linked with --wrap=gettimeofday: the library's calls
// (the box filter prints the time of its passes) come here and always see
// the same time, so every printed duration is 0 ms and has the same digits
// on every run.
extern "C" int __wrap_gettimeofday(struct timeval* tv, void*) {
    if (tv != nullptr) {
        tv->tv_sec = 1700000000;
        tv->tv_usec = 0;
    }
    return 0;
}

// The C library's start-up in a static executable asks for the
// executable's folder (a readlink of /proc/self/exe, which qemu answers with
// the absolute path) and keeps a copy on the heap: the length of that path,
// which depends on where the clone is, then moves every later heap block and
// the count of alignment-dependent code such as memcpy. The executables are
// linked with --wrap=_dl_get_origin: the folder is "unknown", as when the
// link cannot be read (it only serves $ORIGIN in dlopen, which the drivers
// never call).
extern "C" const char* __wrap__dl_get_origin(void) { return reinterpret_cast<const char*>(-1); }

namespace {

using Bytes = std::vector<uint8_t>;

struct Args {
    std::string kernel;
    int width = 0, height = 0, calls = 0, count = 5000;
};

// The planes handed to the entry points through the buffer hook: handle h
// is entry h - 1.
std::vector<void*> g_handles;
void* Convert(uint32_t h) { return h == 0 || h > g_handles.size() ? nullptr : g_handles[h - 1]; }
uint32_t AddHandle(void* p) {
    g_handles.push_back(p);
    return static_cast<uint32_t>(g_handles.size());
}

void Units(double n, const char* unit) { printf("cost-units %.0f %s\n", n, unit); }

// Integral image of a width x height plane.
void RunIntegral(const Args& a) {
    const int stride = cost::Pitch128(a.width);
    const Bytes src = cost::Plane(stride, a.height, 1);
    std::vector<int32_t> dst(static_cast<size_t>(a.width + 1) * (a.height + 1));
    MultiThread_Init(4);
    for (int i = 0; i < a.calls; ++i) cost::IntergralMat_MT(src.data(), dst.data(), a.width, a.height, stride);
    MultiThread_destory();
    Units(double(a.width) * a.height, "pixel");
}

// Box sums and the box filter with radius kBoxRadius; the work area laid out
// as BoxFiltering_neon lays it out.
void RunBox(const Args& a, int pass) {
    const int stride = cost::Pitch128(a.width);
    const int R = cost::kBoxRadius;
    const Bytes src = cost::Plane(stride, a.height, 2);
    Bytes dst(src.size());
    const size_t sums = static_cast<size_t>(a.width) * a.height * 4;
    const size_t slices = static_cast<size_t>(stride) * (2 * R + (a.height + 3) / 4) * 4;
    std::vector<int32_t> work((sums + slices) / 4 + 1);
    uint8_t* w = reinterpret_cast<uint8_t*>(work.data());
    MultiThread_Init(4);
    // The vertical pass reads sums made in the set-up.
    if (pass == 1) IntegralMat_H_MT(work.data(), src.data(), a.width, stride, a.height, R);
    for (int i = 0; i < a.calls; ++i) {
        if (pass == 0) {
            cost::IntegralMat_H_MT(work.data(), src.data(), a.width, stride, a.height, R);
        } else if (pass == 1) {
            uint8_t* cursor = w + sums;
            cost::IntegralMat_V_MT(dst.data(), work.data(), a.width, stride, a.height, R, &cursor);
        } else {
            cost::BoxFiltering_neon(src.data(), dst.data(), a.width, stride, a.height, R, w,
                                    static_cast<int>(sums + slices));
        }
    }
    MultiThread_destory();
    Units(double(a.width) * a.height, "pixel");
}

// x2 down-scale of a width x height plane.
void RunDownScale(const Args& a) {
    const int stride = cost::Pitch128(a.width), dstStride = cost::Pitch128(a.width / 2);
    const Bytes src = cost::Plane(stride, a.height, 3);
    Bytes dst(static_cast<size_t>(dstStride) * (a.height / 2));
    MultiThread_Init(4);
    for (int i = 0; i < a.calls; ++i)
        cost::DownScaleX4_Neon_MT(src.data(), dst.data(), a.height, a.width, stride, dstStride);
    MultiThread_destory();
    Units(double(a.width / 2) * (a.height / 2), "pixel");
}

// x2 up-scale of the half-size plane to width x height.
void RunUpScale(const Args& a) {
    const int w2 = a.width / 2, h2 = a.height / 2;
    const int s2 = cost::Pitch128(w2), stride = cost::Pitch128(a.width);
    const Bytes src = cost::Plane(s2, h2, 4);
    Bytes dst(static_cast<size_t>(stride) * a.height);
    MultiThread_Init(4);
    for (int i = 0; i < a.calls; ++i) cost::MT_UpScale4X_NEON(src.data(), h2, w2, s2, stride, dst.data());
    MultiThread_destory();
    Units(double(a.width) * a.height, "pixel");
}

// Saturated difference of two width x height planes.
void RunUpScaleError(const Args& a) {
    const int stride = cost::Pitch128(a.width);
    const Bytes pa = cost::Plane(stride, a.height, 5), pb = cost::Plane(stride, a.height, 6);
    std::vector<int8_t> err(pa.size());
    MultiThread_Init(4);
    for (int i = 0; i < a.calls; ++i)
        cost::UpScaleError_Neon_MT(pa.data(), pb.data(), err.data(), a.width, a.height, stride);
    MultiThread_destory();
    Units(double(a.width) * a.height, "pixel");
}

// Colour conversion of a width x height luma plane (each pixel with its
// own chroma pair) with the block histograms.
void RunYuv2Rgb(const Args& a) {
    const int stride = cost::Pitch128(a.width), uvStride = cost::Pitch128(2 * a.width);
    const Bytes y = cost::Plane(stride, a.height, 7), uv = cost::Plane(uvStride, a.height, 8);
    Bytes b(y.size()), g(y.size()), r(y.size());
    std::vector<uint32_t> hist(4 * 3 * 256);
    MultiThread_Init(4);
    for (int i = 0; i < a.calls; ++i) {
        cost::YUV2RGB_LUTX4_NEON_MT(y.data(), uv.data(), b.data(), g.data(), r.data(), hist.data(), a.width, a.height,
                                    uvStride, stride);
    }
    MultiThread_destory();
    Units(double(a.width) * a.height, "pixel");
}

// Cumulative histograms: every pixel (step 0) or every second pixel of
// every second row (step 2); counted per pixel of the plane either way.
void RunHist(const Args& a, int step) {
    const int stride = cost::Pitch128(a.width);
    const Bytes p = cost::Plane(stride, a.height, 9);
    std::vector<uint32_t> set(4 * 256);
    MultiThread_Init(4);
    for (int i = 0; i < a.calls; ++i) {
        if (step == 0) {
            cost::GetCumSum_Neon_MT(p.data(), a.width, a.height, stride, set.data());
        } else {
            cost::GetCumHist_Neon_MT(p.data(), a.width, a.height, stride, step, set.data());
        }
    }
    MultiThread_destory();
    Units(double(a.width) * a.height, "pixel");
}

// The descriptor kernel on an integral image made in the set-up, or the
// whole entry point (integral image included).
void RunBrief(const Args& a, bool api) {
    const int stride = cost::Pitch128(a.width);
    const Bytes plane = cost::Plane(stride, a.height, 10);
    std::vector<cost::Keypoint> kps = cost::Keypoints(a.count, a.width, a.height);
    Bytes desc(static_cast<size_t>(a.count) * TOCRA_DESCRIPTOR_BYTES);
    if (api) {
        setIO2VAConverter(Convert);
        tagST_BRIEF_REQUEST req = {AddHandle(const_cast<uint8_t*>(plane.data())),
                                   0,
                                   AddHandle(kps.data()),
                                   AddHandle(desc.data()),
                                   a.width,
                                   a.height,
                                   stride,
                                   a.count};
        for (int i = 0; i < a.calls; ++i) {
            if (cost::GetBrief_Descriptors_TocraAPI(&req) != 0) exit(1);
        }
    } else {
        std::vector<int32_t> integral(static_cast<size_t>(a.width + 1) * (a.height + 1));
        MultiThread_Init(4);
        IntergralMat_MT(plane.data(), integral.data(), a.width, a.height, stride);
        ST_IMAGEFEATURES f = {reinterpret_cast<tagST_KEYPOINT*>(kps.data()), desc.data(), a.count};
        for (int i = 0; i < a.calls; ++i) cost::GenerateDiscriptor_Brief_MT(&f, integral.data(), a.width + 1);
        MultiThread_destory();
    }
    Units(a.count, "keypoint");
}

// Both RANSAC passes as the RANSAC entry point runs them: threshold 160 on
// the quarter-frame matches, the survivors scaled by 4, threshold 80.
void RunRansac(const Args& a) {
    const cost::Matches m = cost::RansacMatches();
    std::vector<float> ref(m.ref.size()), match(m.match.size());
    std::vector<unsigned char> scratch(80 * cost::kMatches);
    float H[9] = {};
    for (int i = 0; i < a.calls; ++i) {
        ref = m.ref;
        match = m.match;
        tagST_MATCH_PAIRS pairs = {ref.data(), match.data(), cost::kMatches};
        tagRANSAC_PARAMS first = {100, 160.0f, 0.9995f};
        cost::RansacEstimation(&pairs, H, &first, scratch.data());
        if (pairs.pointNum < 5) exit(1);
        for (int k = 0; k < 2 * pairs.pointNum; ++k) {
            ref[k] *= cost::kMatchScale;
            match[k] *= cost::kMatchScale;
        }
        tagRANSAC_PARAMS second = {100, 80.0f, 0.9995f};
        cost::RansacEstimation(&pairs, H, &second, scratch.data());
    }
    Units(cost::kMatches, "pair");
}

// The DLT's normal matrix over the first kDltPairs matches.
void RunDlt(const Args& a) {
    const cost::Matches m = cost::RansacMatches();
    const float norm[8] = {500.0f, 375.0f, 0.004f, 0.005f, 510.0f, 370.0f, 0.004f, 0.005f};
    float LtL[81];
    for (int i = 0; i < a.calls; ++i) cost::DltNormalMatrix(m.ref.data(), m.match.data(), cost::kDltPairs, norm, LtL);
    Units(cost::kDltPairs, "pair");
}

// A frame in the layout of the registration: planar with 128-aligned
// pitches, or NV12 with pitch `width`.
struct Frame {
    Bytes y, u, v;
    tagST_PIC pic{};
    Frame(int width, int height, bool nv12, uint32_t seed) {
        const int pitch = nv12 ? width : cost::Pitch128(width);
        const int cpitch = nv12 ? width : cost::Pitch128(width / 2);
        y = cost::Plane(pitch, height, seed);
        u = cost::Plane(cpitch, height / 2, seed + 1);
        if (!nv12) v = cost::Plane(cpitch, height / 2, seed + 2);
        pic = {width, height, pitch, y.data(), u.data(), nv12 ? nullptr : v.data(), nv12 ? 0 : TOCRA_FORMAT_YUV420};
    }
};

// The warp of a whole frame (area from the library's motion check, border
// filled), or the NV12 copy fill alone around that area.
void RunWarp(const Args& a, bool nv12, bool fillOnly) {
    Frame src(a.width, a.height, nv12, 11), dst(a.width, a.height, nv12, 14);
    tagST_PIC ref = src.pic;
    float H[9];
    cost::WarpMatrix(a.width, a.height, H);
    tagST_REGISTRATION_AREA area{};
    if (MotionEstimation(H, a.width, a.height, &area) != 0) exit(1);
    std::vector<unsigned char> scratch(static_cast<size_t>(cost::Pitch128(a.width)) * 2 + 64);
    unsigned char* table = scratch.data() + (16 - reinterpret_cast<uintptr_t>(scratch.data()) % 16) % 16;
    for (int i = 0; i < a.calls; ++i) {
        if (fillOnly) {
            cost::FillBlank_neon_NV12(&dst.pic, &src.pic, area.x, area.y, area.width, area.height);
        } else {
            cost::AffineTransform_neon(&ref, &src.pic, &dst.pic, H, &area, table);
        }
    }
    if (fillOnly) {
        Units(double(a.width) * a.height - double(area.width) * area.height, "border-pixel");
    } else {
        Units(double(a.width) * a.height, "pixel");
    }
}

// One whole registration call: 2,000 keypoint matches (a quarter wrong),
// both RANSAC passes, the refit, the motion check and the planar warp.
void RunRansacRegis(const Args& a) {
    Frame src(a.width, a.height, false, 21), dst(a.width, a.height, false, 24);
    float H[9];
    cost::WarpMatrix(a.width, a.height, H);
    cost::RegistrationMatches m = cost::RegistrationPairs(a.width, a.height, H);
    const int n = static_cast<int>(m.refKeys.size());
    std::vector<float> distance(n, 1.0f), refPoints(2 * n), matchPoints(2 * n);
    setIO2VAConverter(Convert);
    tagST_RANSAC_REQUEST ransac = {AddHandle(refPoints.data()),
                                   AddHandle(matchPoints.data()),
                                   n,
                                   AddHandle(m.queryIdx.data()),
                                   AddHandle(m.trainIdx.data()),
                                   AddHandle(distance.data()),
                                   n,
                                   1,
                                   0,
                                   AddHandle(m.refKeys.data()),
                                   AddHandle(m.matchKeys.data())};
    tagST_REGIS_INPUT_RECORD input{};
    input.refPic = {a.width,
                    a.height,
                    0,
                    AddHandle(src.y.data()),
                    AddHandle(src.u.data()),
                    AddHandle(src.v.data()),
                    TOCRA_FORMAT_YUV420};
    input.srcPic = input.refPic;
    input.framePairs[0] = {ransac.refPointBuf, ransac.matchPointBuf, 0};
    tagST_REGIS_OUTPUT_RECORD output{};
    output.outPic[1] = {a.width, a.height, 0, AddHandle(dst.y.data()), AddHandle(dst.u.data()), AddHandle(dst.v.data()),
                        0};
    tagST_RANSAC_REGIS_REQUEST combined = {AddHandle(&ransac), AddHandle(&input), AddHandle(&output), 1};
    for (int i = 0; i < a.calls; ++i) {
        ransac.pointNum = n;
        if (cost::Ransac_Regis_TocraAPI(&combined) != 0) exit(1);
    }
    Units(double(a.width) * a.height, "pixel");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        fprintf(stderr, "usage: cost_driver KERNEL WIDTH HEIGHT CALLS [COUNT]\n");
        return 2;
    }
    Args a;
    a.kernel = argv[1];
    a.width = atoi(argv[2]);
    a.height = atoi(argv[3]);
    a.calls = atoi(argv[4]);
    if (argc > 5) a.count = atoi(argv[5]);
    if (a.width < 256 || a.height < 256 || a.calls < 0 || a.count < 4) return 2;
    if (!cost::Available(a.kernel.c_str())) return 3;

    const std::string& k = a.kernel;
    if (k == "integral") {
        RunIntegral(a);
    } else if (k == "box_h") {
        RunBox(a, 0);
    } else if (k == "box_v") {
        RunBox(a, 1);
    } else if (k == "box_filter") {
        RunBox(a, 2);
    } else if (k == "downscale") {
        RunDownScale(a);
    } else if (k == "upscale") {
        RunUpScale(a);
    } else if (k == "upscale_error") {
        RunUpScaleError(a);
    } else if (k == "yuv2rgb_hist") {
        RunYuv2Rgb(a);
    } else if (k == "cum_sum") {
        RunHist(a, 0);
    } else if (k == "cum_hist") {
        RunHist(a, 2);
    } else if (k == "brief_kernel") {
        RunBrief(a, false);
    } else if (k == "brief_api") {
        RunBrief(a, true);
    } else if (k == "ransac") {
        RunRansac(a);
    } else if (k == "dlt_normal") {
        RunDlt(a);
    } else if (k == "warp_yuv420") {
        RunWarp(a, false, false);
    } else if (k == "warp_nv12") {
        RunWarp(a, true, false);
    } else if (k == "fill_nv12") {
        RunWarp(a, true, true);
    } else if (k == "ransac_regis") {
        RunRansacRegis(a);
    } else {
        fprintf(stderr, "unknown kernel %s\n", argv[1]);
        return 2;
    }
    return 0;
}
