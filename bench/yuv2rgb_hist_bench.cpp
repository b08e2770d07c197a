// Half-size colour conversion (with its block histograms) against
// cv::cvtColor NV12 -> BGR of the same output size, and the full cumulative
// histogram of the half-size luma against cv::calcHist.
#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>
#include <vector>

#include "bench/bench_support.h"
#include "brimvel_tocra.h"
#include "frame/picture.h"

namespace {

using tocra_bench::kHalfHeight;
using tocra_bench::kHalfWidth;

void BM_YUV2RGB_LUTX4_NEON_MT(benchmark::State& state) {
    const int s2 = tocra::Pitch128(kHalfWidth), uvStride = tocra::Pitch128(2 * kHalfWidth);
    // 1500 rows: the last band's 375 rows end on an odd row, whose pair is
    // the row after the plane (read in y and uv, written in b, g and r).
    const auto y = tocra_bench::TexturedPlane(kHalfWidth, kHalfHeight + 1, s2, 1);
    const auto uv = tocra_bench::TexturedPlane(2 * kHalfWidth, kHalfHeight + 1, uvStride, 2);
    std::vector<uint8_t> b(y.size()), g(y.size()), r(y.size());
    std::vector<uint32_t> set(4 * 3 * 256);
    MultiThread_Init(4);
    for (auto _ : state) {
        YUV2RGB_LUTX4_NEON_MT(y.data(), uv.data(), b.data(), g.data(), r.data(), set.data(), kHalfWidth, kHalfHeight,
                              uvStride, s2);
        benchmark::DoNotOptimize(r.data());
    }
    MultiThread_destory();
}

void BM_cv_cvtColor_NV12(benchmark::State& state) {
    auto nv12 = tocra_bench::TexturedPlane(kHalfWidth, kHalfHeight * 3 / 2, kHalfWidth, 3);
    cv::Mat src(kHalfHeight * 3 / 2, kHalfWidth, CV_8UC1, nv12.data()), dst;
    for (auto _ : state) {
        cv::cvtColor(src, dst, cv::COLOR_YUV2BGR_NV12);
        benchmark::DoNotOptimize(dst.data);
    }
}

void BM_GetCumSum_Neon_MT(benchmark::State& state) {
    const int s2 = tocra::Pitch128(kHalfWidth);
    const auto y = tocra_bench::TexturedPlane(kHalfWidth, kHalfHeight, s2, 4);
    std::vector<uint32_t> set(4 * 256);
    MultiThread_Init(4);
    for (auto _ : state) {
        GetCumSum_Neon_MT(y.data(), kHalfWidth, kHalfHeight, s2, set.data());
        benchmark::DoNotOptimize(set.data());
    }
    MultiThread_destory();
}

void BM_cv_calcHist(benchmark::State& state) {
    const int s2 = tocra::Pitch128(kHalfWidth);
    auto y = tocra_bench::TexturedPlane(kHalfWidth, kHalfHeight, s2, 4);
    cv::Mat src(kHalfHeight, kHalfWidth, CV_8UC1, y.data(), s2), hist;
    const int channels[] = {0};
    const int size[] = {256};
    const float range[] = {0, 256};
    const float* ranges[] = {range};
    for (auto _ : state) {
        cv::calcHist(&src, 1, channels, cv::Mat(), hist, 1, size, ranges);
        benchmark::DoNotOptimize(hist.data);
    }
}

BENCHMARK(BM_YUV2RGB_LUTX4_NEON_MT)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_cv_cvtColor_NV12)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GetCumSum_Neon_MT)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_cv_calcHist)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
