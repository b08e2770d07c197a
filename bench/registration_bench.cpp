// Registration mathematics against OpenCV: RANSAC homography on 2,000
// matches, BRIEF descriptors of 5,000 keypoints on a 12-megapixel plane, and
// the two forms of the descriptor kernel.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#include <vector>

#include "bench/bench_support.h"
#include "brimvel_tocra.h"
#include "registration/brief.h"
#include "registration/homography.h"

namespace {

// ---------------------------------------------------------------------------
// RANSAC
// ---------------------------------------------------------------------------

// Keypoints live on a quarter-size frame (1000 x 750); the second pass
// works on full-frame coordinates, scale 4.
constexpr int kMatches = 2000;
constexpr float kScale = 4.0f;
const double kTruth[9] = {1.02, 0.015, 12.5, -0.012, 0.99, -7.25, 2.0e-5, -1.5e-5, 1.0};

void Map(const double* H, double x, double y, double* ox, double* oy) {
    const double w = H[6] * x + H[7] * y + H[8];
    *ox = (H[0] * x + H[1] * y + H[2]) / w;
    *oy = (H[3] * x + H[4] * y + H[5]) / w;
}

struct Matches {
    std::vector<float> ref, match;  // quarter-frame pixels
};

// 2,000 matches: noise of +-0.5 pixel, 30% displaced 20 to 200 pixels.
const Matches& TestMatches() {
    static const Matches m = [] {
        Matches r;
        uint32_t s = 12345u;
        auto next = [&s] { return s = s * 1664525u + 1013904223u; };
        auto uni = [&](double lo, double hi) { return lo + (hi - lo) * (next() >> 8) / 16777216.0; };
        for (int i = 0; i < kMatches; ++i) {
            const double x = uni(0, 999), y = uni(0, 749);
            double mx, my;
            Map(kTruth, x, y, &mx, &my);
            if (next() % 100 < 30) {
                const double d = uni(20, 200), a = uni(0, 6.2831853);
                mx += d * std::cos(a);
                my += d * std::sin(a);
            } else {
                mx += uni(-0.5, 0.5);
                my += uni(-0.5, 0.5);
            }
            r.ref.insert(r.ref.end(), {float(x), float(y)});
            r.match.insert(r.match.end(), {float(mx), float(my)});
        }
        return r;
    }();
    return m;
}

// Largest distance, over the four corners of the full frame, between the
// estimate and the truth (both in full-frame coordinates).
double CornerError(const double* H) {
    double truth[9];
    memcpy(truth, kTruth, sizeof(truth));
    truth[2] *= kScale;
    truth[5] *= kScale;
    truth[6] /= kScale;
    truth[7] /= kScale;
    double worst = 0;
    for (double cx : {0.0, double(tocra_bench::kWidth - 1)}) {
        for (double cy : {0.0, double(tocra_bench::kHeight - 1)}) {
            double ax, ay, bx, by;
            Map(H, cx, cy, &ax, &ay);
            Map(truth, cx, cy, &bx, &by);
            worst = std::max(worst, std::hypot(ax - bx, ay - by));
        }
    }
    return worst;
}

void BM_RansacEstimation_TwoPasses(benchmark::State& state) {
    const Matches& m = TestMatches();
    std::vector<float> ref(m.ref.size()), match(m.match.size());
    std::vector<unsigned char> scratch(80 * kMatches);
    float H[9] = {};
    int kept = 0;
    for (auto _ : state) {
        memcpy(ref.data(), m.ref.data(), ref.size() * 4);
        memcpy(match.data(), m.match.data(), match.size() * 4);
        tagST_MATCH_PAIRS pairs = {ref.data(), match.data(), kMatches};
        tagRANSAC_PARAMS first = {100, 160.0f, 0.9995f};
        RansacEstimation(&pairs, H, &first, scratch.data());
        for (int i = 0; i < 2 * pairs.pointNum; ++i) {
            ref[i] *= kScale;
            match[i] *= kScale;
        }
        tagRANSAC_PARAMS second = {100, 80.0f, 0.9995f};
        RansacEstimation(&pairs, H, &second, scratch.data());
        kept = pairs.pointNum;
        benchmark::DoNotOptimize(H);
    }
    double Hd[9];
    for (int i = 0; i < 9; ++i) Hd[i] = H[i];
    Hd[8] = 1.0;  // the library's consumers take 1 in place of h8
    state.counters["corner_err_px"] = CornerError(Hd);
    state.counters["inliers"] = kept;
}
BENCHMARK(BM_RansacEstimation_TwoPasses)->Unit(benchmark::kMicrosecond);

void BM_OpenCV_findHomography_RANSAC(benchmark::State& state) {
    const Matches& m = TestMatches();
    std::vector<cv::Point2f> src(kMatches), dst(kMatches);
    for (int i = 0; i < kMatches; ++i) {
        src[i] = {m.ref[2 * i] * kScale, m.ref[2 * i + 1] * kScale};
        dst[i] = {m.match[2 * i] * kScale, m.match[2 * i + 1] * kScale};
    }
    cv::Mat H, mask;
    for (auto _ : state) {
        // The same inlier bound (squared distance 80 at full frame) and confidence.
        H = cv::findHomography(src, dst, cv::RANSAC, std::sqrt(80.0), mask, 2000, 0.9995);
        benchmark::DoNotOptimize(H.data);
    }
    double Hd[9];
    for (int i = 0; i < 9; ++i) Hd[i] = H.at<double>(i / 3, i % 3);
    state.counters["corner_err_px"] = CornerError(Hd);
    state.counters["inliers"] = cv::countNonZero(mask);
}
BENCHMARK(BM_OpenCV_findHomography_RANSAC)->Unit(benchmark::kMicrosecond);

// ---------------------------------------------------------------------------
// BRIEF descriptors
// ---------------------------------------------------------------------------

constexpr int kKeypoints = 5000;
constexpr int kStride = (tocra_bench::kWidth + 127) & ~127;

const std::vector<uint8_t>& Plane() {
    static const std::vector<uint8_t> p =
        tocra_bench::TexturedPlane(tocra_bench::kWidth, tocra_bench::kHeight, kStride);
    return p;
}

// Keypoints 40 pixels or more inside the frame, at 1/64 pixel.
const std::vector<tagST_KEYPOINT>& Keypoints() {
    static const std::vector<tagST_KEYPOINT> k = [] {
        std::vector<tagST_KEYPOINT> v(kKeypoints);
        uint32_t s = 777u;
        auto next = [&s] { return s = s * 1664525u + 1013904223u; };
        for (tagST_KEYPOINT& kp : v) {
            kp.x = int32_t(40 * 64 + next() % uint32_t((tocra_bench::kWidth - 80) * 64));
            kp.y = int32_t(40 * 64 + next() % uint32_t((tocra_bench::kHeight - 80) * 64));
            kp.reserved = 0;
        }
        return v;
    }();
    return k;
}

void* g_buffers[4];
void* ConvertIndex(uint32_t h) { return h >= 1 && h <= 4 ? g_buffers[h - 1] : nullptr; }

void BM_GetBrief_Descriptors_TocraAPI(benchmark::State& state) {
    std::vector<tagST_KEYPOINT> kps = Keypoints();
    std::vector<uint8_t> desc(size_t(kKeypoints) * 64);
    g_buffers[0] = const_cast<uint8_t*>(Plane().data());
    g_buffers[1] = kps.data();
    g_buffers[2] = desc.data();
    setIO2VAConverter(ConvertIndex);
    tagST_BRIEF_REQUEST req = {1, 0, 2, 3, tocra_bench::kWidth, tocra_bench::kHeight, kStride, kKeypoints};
    for (auto _ : state) {
        if (GetBrief_Descriptors_TocraAPI(&req) != 0) state.SkipWithError("descriptor call failed");
        benchmark::DoNotOptimize(desc.data());
    }
    setIO2VAConverter(nullptr);
}
BENCHMARK(BM_GetBrief_Descriptors_TocraAPI)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
// What the call did before it worked in windows: a fresh whole-frame
// integral per call (48 MB at 12 megapixels), built and read by the pool.
void BM_BriefWholeFrameIntegral(benchmark::State& state) {
    std::vector<tagST_KEYPOINT> kps = Keypoints();
    std::vector<uint8_t> desc(size_t(kKeypoints) * 64);
    const size_t entries = size_t(tocra_bench::kWidth + 1) * (tocra_bench::kHeight + 1);
    for (auto _ : state) {
        int* integral = static_cast<int*>(malloc(entries * sizeof(int)));
        if (integral == nullptr || MultiThread_Init(4) != 0) state.SkipWithError("no memory or no pool");
        IntergralMat_MT(Plane().data(), integral, tocra_bench::kWidth, tocra_bench::kHeight, kStride);
        ST_IMAGEFEATURES f = {kps.data(), desc.data(), kKeypoints};
        GenerateDiscriptor_Brief_MT(&f, integral, tocra_bench::kWidth + 1);
        free(integral);
        MultiThread_destory();
        benchmark::DoNotOptimize(desc.data());
    }
}
BENCHMARK(BM_BriefWholeFrameIntegral)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// CPU time is the whole process's (every worker), so that the two sides
// compare on a machine shared with other work.
// The first call of a process (nothing of the call's scratch mapped yet):
// run this one alone, e.g. --benchmark_filter=FirstCall, in a fresh process.
BENCHMARK(BM_GetBrief_Descriptors_TocraAPI)
    ->Name("BM_GetBrief_Descriptors_TocraAPI_FirstCall")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

void BM_OpenCV_ORB_compute(benchmark::State& state) {
    const cv::Mat img(tocra_bench::kHeight, tocra_bench::kWidth, CV_8UC1, const_cast<uint8_t*>(Plane().data()),
                      kStride);
    std::vector<cv::KeyPoint> base;
    for (const tagST_KEYPOINT& kp : Keypoints()) base.emplace_back(kp.x / 64.0f, kp.y / 64.0f, 31.0f, -1.0f, 0, 0);
    // One pyramid level, so that ORB only smooths the full-size image once.
    cv::Ptr<cv::ORB> orb = cv::ORB::create(kKeypoints, 1.2f, 1, 31, 0, 2, cv::ORB::HARRIS_SCORE, 31);
    cv::Mat desc;
    size_t kept = 0;
    for (auto _ : state) {
        std::vector<cv::KeyPoint> kps = base;
        orb->compute(img, kps, desc);
        kept = kps.size();
        benchmark::DoNotOptimize(desc.data);
    }
    state.counters["keypoints"] = double(kept);
}
BENCHMARK(BM_OpenCV_ORB_compute)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// The two forms of the kernel, one thread, on a ready integral image.
const std::vector<int>& IntegralOfPlane() {
    static const std::vector<int> s = [] {
        std::vector<int> v(size_t(tocra_bench::kWidth + 1) * (tocra_bench::kHeight + 1));
        IntergralMat_MT(Plane().data(), v.data(), tocra_bench::kWidth, tocra_bench::kHeight, kStride);
        return v;
    }();
    return s;
}

template <void (*Kernel)(const int*, ST_IMAGEFEATURES*, int)>
void BM_BriefKernel(benchmark::State& state) {
    std::vector<tagST_KEYPOINT> kps = Keypoints();
    std::vector<uint8_t> desc(size_t(kKeypoints) * 64);
    const std::vector<int>& s = IntegralOfPlane();
    ST_IMAGEFEATURES f = {kps.data(), desc.data(), kKeypoints};
    for (auto _ : state) {
        Kernel(s.data(), &f, tocra_bench::kWidth + 1);
        benchmark::DoNotOptimize(desc.data());
    }
    state.SetItemsProcessed(state.iterations() * kKeypoints);
}
BENCHMARK_TEMPLATE(BM_BriefKernel, GenerateDiscriptor_Brief)
    ->Name("BM_BriefKernel_Unrolled")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_BriefKernel, tocra::GenerateDiscriptor_Brief_Table)
    ->Name("BM_BriefKernel_Table")
    ->Unit(benchmark::kMillisecond);

}  // namespace

namespace {

// The DLT's normal matrix over 1,400 pairs (one refit of the RANSAC runs
// above), plain and vector.
template <void (*Kernel)(const float*, const float*, int, const float*, float*)>
void BM_DltNormalMatrix(benchmark::State& state) {
    const Matches& m = TestMatches();
    const int n = 1400;
    const float norm[8] = {500.0f, 375.0f, 0.004f, 0.0053f, 505.0f, 370.0f, 0.004f, 0.0053f};
    float LtL[81];
    for (auto _ : state) {
        Kernel(m.ref.data(), m.match.data(), n, norm, LtL);
        benchmark::DoNotOptimize(LtL);
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK_TEMPLATE(BM_DltNormalMatrix, tocra::DltNormalMatrix_C)->Name("BM_DltNormalMatrix_C");
#if !defined(BRIMVEL_PLAIN_ONLY)
BENCHMARK_TEMPLATE(BM_DltNormalMatrix, tocra::DltNormalMatrix_NEON)->Name("BM_DltNormalMatrix_NEON");
#endif

// The descriptor windows' integral row, 4,000 rows of a band's 312 entries.
template <void (*Row)(const uint8_t*, const uint32_t*, uint32_t*, int, uint32_t)>
void BM_BriefIntegralRow(benchmark::State& state) {
    const int n = tocra::kBriefBandColumns + tocra::kBriefReach.right - tocra::kBriefReach.left;
    std::vector<uint32_t> rows(size_t(n) * 2, 0);
    for (auto _ : state) {
        for (int r = 0; r < 4000; ++r) {
            uint32_t* above = rows.data() + size_t(r & 1) * n;
            uint32_t* out = rows.data() + size_t((r + 1) & 1) * n;
            Row(Plane().data() + size_t(r % tocra_bench::kHeight) * kStride, above, out, n, 0);
        }
        benchmark::DoNotOptimize(rows.data());
    }
    state.SetItemsProcessed(state.iterations() * 4000 * n);
}
BENCHMARK_TEMPLATE(BM_BriefIntegralRow, tocra::BriefIntegralRow_C)
    ->Name("BM_BriefIntegralRow_C")
    ->Unit(benchmark::kMicrosecond);
#if !defined(BRIMVEL_PLAIN_ONLY)
BENCHMARK_TEMPLATE(BM_BriefIntegralRow, tocra::BriefIntegralRow_NEON)
    ->Name("BM_BriefIntegralRow_NEON")
    ->Unit(benchmark::kMicrosecond);
#endif

}  // namespace
