// The perspective warp at 12 megapixels against OpenCV's warpPerspective
// (luma bilinear, chroma nearest) with the same matrix, and one whole
// registration call against findHomography + warpPerspective.
#include <benchmark/benchmark.h>

#include <cmath>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "bench/bench_support.h"
#include "brimvel_tocra.h"

namespace {

using tocra_bench::kHeight;
using tocra_bench::kWidth;

constexpr int kPitch = (kWidth + 127) & ~127;              // 4096
constexpr int kChromaPitch = ((kWidth / 2) + 127) & ~127;  // 2048

// Reference point -> frame point: 1 degree, a few pixels, slight perspective.
void Matrix(float* h) {
    const double t = 1.0 * M_PI / 180.0, c = std::cos(t), s = std::sin(t);
    const double cx = kWidth / 2.0, cy = kHeight / 2.0;
    const double m[9] = {c, -s, cx - c * cx + s * cy + 12, s, c, cy - s * cx - c * cy - 8, 2e-7, -1e-7, 1};
    for (int i = 0; i < 9; ++i) h[i] = static_cast<float>(m[i]);
}

struct WarpSetup {
    bool nv12;
    std::vector<uint8_t> srcY, srcU, srcV, dstY, dstU, dstV;
    std::vector<unsigned char> scratch;
    tagST_PIC ref{}, src{}, dst{};
    float H[9];
    tagST_REGISTRATION_AREA area{};

    explicit WarpSetup(bool isNv12) : nv12(isNv12) {
        const int pitch = nv12 ? kWidth : kPitch;
        const int cpitch = nv12 ? kWidth : kChromaPitch;
        srcY = tocra_bench::TexturedPlane(kWidth, kHeight, pitch, 1);
        srcU = tocra_bench::TexturedPlane(cpitch, kHeight / 2, cpitch, 2);
        srcV = nv12 ? std::vector<uint8_t>() : tocra_bench::TexturedPlane(cpitch, kHeight / 2, cpitch, 3);
        dstY.assign(srcY.size(), 0);
        dstU.assign(srcU.size(), 0);
        dstV.assign(srcV.size(), 0);
        scratch.assign(static_cast<size_t>(kWidth) * 100, 0);
        const int format = nv12 ? 0 : TOCRA_FORMAT_YUV420;
        src = {kWidth, kHeight, pitch, srcY.data(), srcU.data(), nv12 ? nullptr : srcV.data(), format};
        dst = {kWidth, kHeight, pitch, dstY.data(), dstU.data(), nv12 ? nullptr : dstV.data(), format};
        ref = src;
        Matrix(H);
        MotionEstimation(H, kWidth, kHeight, &area);
    }
};

void BM_AffineTransformNeon(benchmark::State& state) {
    WarpSetup s(state.range(0) != 0);
    for (auto _ : state) {
        AffineTransform_neon(&s.ref, &s.src, &s.dst, s.H, &s.area, s.scratch.data());
        benchmark::DoNotOptimize(s.dstY.data());
    }
    state.SetLabel(s.nv12 ? "NV12" : "planar");
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_AffineTransformNeon)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// OpenCV's equivalent: luma bilinear, chroma nearest, the same matrix
// (destination to source, so WARP_INVERSE_MAP), chroma through the matrix
// conjugated by the half scale.
void BM_OpenCV_WarpPerspective(benchmark::State& state) {
    const bool nv12 = state.range(0) != 0;
    WarpSetup s(nv12);
    const int pitch = nv12 ? kWidth : kPitch;
    const int cpitch = nv12 ? kWidth : kChromaPitch;
    cv::Mat srcY(kHeight, kWidth, CV_8UC1, s.srcY.data(), pitch), dstY(kHeight, kWidth, CV_8UC1, s.dstY.data(), pitch);
    cv::Mat H(3, 3, CV_32F, s.H);
    cv::Mat half = (cv::Mat_<float>(3, 3) << 0.5f, 0, 0, 0, 0.5f, 0, 0, 0, 1);
    cv::Mat Hc = half * H * half.inv();
    for (auto _ : state) {
        cv::warpPerspective(srcY, dstY, H, dstY.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
        if (nv12) {
            cv::Mat srcUV(kHeight / 2, kWidth / 2, CV_8UC2, s.srcU.data(), cpitch);
            cv::Mat dstUV(kHeight / 2, kWidth / 2, CV_8UC2, s.dstU.data(), cpitch);
            cv::warpPerspective(srcUV, dstUV, Hc, dstUV.size(), cv::INTER_NEAREST | cv::WARP_INVERSE_MAP,
                                cv::BORDER_REPLICATE);
        } else {
            cv::Mat srcU(kHeight / 2, kWidth / 2, CV_8UC1, s.srcU.data(), cpitch);
            cv::Mat dstU(kHeight / 2, kWidth / 2, CV_8UC1, s.dstU.data(), cpitch);
            cv::Mat srcV(kHeight / 2, kWidth / 2, CV_8UC1, s.srcV.data(), cpitch);
            cv::Mat dstV(kHeight / 2, kWidth / 2, CV_8UC1, s.dstV.data(), cpitch);
            cv::warpPerspective(srcU, dstU, Hc, dstU.size(), cv::INTER_NEAREST | cv::WARP_INVERSE_MAP,
                                cv::BORDER_REPLICATE);
            cv::warpPerspective(srcV, dstV, Hc, dstV.size(), cv::INTER_NEAREST | cv::WARP_INVERSE_MAP,
                                cv::BORDER_REPLICATE);
        }
        benchmark::DoNotOptimize(s.dstY.data());
    }
    state.SetLabel(nv12 ? "NV12" : "planar");
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_OpenCV_WarpPerspective)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// The pipeline side of one registration at 12 megapixels: 2,000 matches of
// which a quarter are wrong, the frame's planes behind a handle table.
struct RegistrationSetup {
    WarpSetup warp{false};
    std::vector<tagST_KEYPOINT> refKeys, matchKeys;
    std::vector<uint16_t> queryIdx, trainIdx;
    std::vector<float> distance, refPoints, matchPoints;
    tagST_RANSAC_REQUEST ransac{};
    tagST_REGIS_INPUT_RECORD input{};
    tagST_REGIS_OUTPUT_RECORD output{};
    tagST_RANSAC_REGIS_REQUEST combined{};
    std::vector<void*> handles;

    uint32_t Add(void* p) {
        handles.push_back(p);
        return static_cast<uint32_t>(handles.size());
    }
    static RegistrationSetup* current;
    static void* Convert(uint32_t h) {
        return h == 0 || h > current->handles.size() ? nullptr : current->handles[h - 1];
    }

    RegistrationSetup() {
        current = this;
        const int n = 2000;
        uint32_t seed = 7;
        auto rnd = [&seed]() {
            seed = seed * 1664525u + 1013904223u;
            return static_cast<double>(seed >> 8) / 16777216.0;
        };
        for (int i = 0; i < n; ++i) {
            const double x = 100 + rnd() * (kWidth - 200), y = 100 + rnd() * (kHeight - 200);
            const float* h = warp.H;
            const double w = h[6] * x + h[7] * y + 1;
            const double u = (h[0] * x + h[1] * y + h[2]) / w, v = (h[3] * x + h[4] * y + h[5]) / w;
            refKeys.push_back({static_cast<int32_t>(x * 64), static_cast<int32_t>(y * 64), 0});
            matchKeys.push_back({static_cast<int32_t>(u * 64 + (rnd() - 0.5) * 40),
                                 static_cast<int32_t>(v * 64 + (rnd() - 0.5) * 40), 0});
            trainIdx.push_back(static_cast<uint16_t>(i));
            queryIdx.push_back(static_cast<uint16_t>(i % 4 == 1 ? (i * 7 + 1000) % n : i));
        }
        distance.assign(n, 1.0f);
        refPoints.assign(2 * n, 0);
        matchPoints.assign(2 * n, 0);
        setIO2VAConverter(Convert);
        ransac = {Add(refPoints.data()),
                  Add(matchPoints.data()),
                  n,
                  Add(queryIdx.data()),
                  Add(trainIdx.data()),
                  Add(distance.data()),
                  n,
                  1,
                  0,
                  Add(refKeys.data()),
                  Add(matchKeys.data())};
        input.refPic = {kWidth,
                        kHeight,
                        0,
                        Add(warp.srcY.data()),
                        Add(warp.srcU.data()),
                        Add(warp.srcV.data()),
                        TOCRA_FORMAT_YUV420};
        input.srcPic = input.refPic;
        input.framePairs[0] = {ransac.refPointBuf, ransac.matchPointBuf, 0};
        output.outPic[1] = {kWidth, kHeight, 0, Add(warp.dstY.data()), Add(warp.dstU.data()), Add(warp.dstV.data()), 0};
        combined = {Add(&ransac), Add(&input), Add(&output), 1};
    }
};
RegistrationSetup* RegistrationSetup::current = nullptr;

void BM_RansacRegisTocraAPI(benchmark::State& state) {
    RegistrationSetup s;
    int status = 0;
    for (auto _ : state) {
        s.ransac.pointNum = static_cast<int32_t>(s.refKeys.size());
        status = Ransac_Regis_TocraAPI(&s.combined);
        benchmark::DoNotOptimize(status);
    }
    state.counters["status"] = status;
    state.counters["survivors"] = s.ransac.pointNum;
}
BENCHMARK(BM_RansacRegisTocraAPI)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_OpenCV_FindHomographyAndWarp(benchmark::State& state) {
    RegistrationSetup s;
    std::vector<cv::Point2f> ref, match;
    for (size_t i = 0; i < s.refKeys.size(); ++i) {
        ref.emplace_back(s.refKeys[s.trainIdx[i]].x / 64.0f, s.refKeys[s.trainIdx[i]].y / 64.0f);
        match.emplace_back(s.matchKeys[s.queryIdx[i]].x / 64.0f, s.matchKeys[s.queryIdx[i]].y / 64.0f);
    }
    WarpSetup& w = s.warp;
    cv::Mat srcY(kHeight, kWidth, CV_8UC1, w.srcY.data(), kPitch),
        dstY(kHeight, kWidth, CV_8UC1, w.dstY.data(), kPitch);
    cv::Mat srcU(kHeight / 2, kWidth / 2, CV_8UC1, w.srcU.data(), kChromaPitch);
    cv::Mat dstU(kHeight / 2, kWidth / 2, CV_8UC1, w.dstU.data(), kChromaPitch);
    cv::Mat srcV(kHeight / 2, kWidth / 2, CV_8UC1, w.srcV.data(), kChromaPitch);
    cv::Mat dstV(kHeight / 2, kWidth / 2, CV_8UC1, w.dstV.data(), kChromaPitch);
    cv::Mat half = (cv::Mat_<double>(3, 3) << 0.5, 0, 0, 0, 0.5, 0, 0, 0, 1);
    for (auto _ : state) {
        cv::Mat H = cv::findHomography(ref, match, cv::RANSAC, std::sqrt(80.0));
        cv::Mat Hc = half * H * half.inv();
        cv::warpPerspective(srcY, dstY, H, dstY.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
        cv::warpPerspective(srcU, dstU, Hc, dstU.size(), cv::INTER_NEAREST | cv::WARP_INVERSE_MAP,
                            cv::BORDER_REPLICATE);
        cv::warpPerspective(srcV, dstV, Hc, dstV.size(), cv::INTER_NEAREST | cv::WARP_INVERSE_MAP,
                            cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(dstY.data);
    }
}
BENCHMARK(BM_OpenCV_FindHomographyAndWarp)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
