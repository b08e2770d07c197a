// x2 down-scale of the 12-megapixel luma against cv::resize INTER_AREA, and
// x2 up-scale of the half-size luma against cv::resize INTER_LINEAR.
#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>
#include <vector>

#include "bench/bench_support.h"
#include "brimvel_tocra.h"
#include "frame/picture.h"

namespace {

using tocra_bench::kHalfHeight;
using tocra_bench::kHalfWidth;
using tocra_bench::kHeight;
using tocra_bench::kWidth;

void BM_DownScaleX4_Neon_MT(benchmark::State& state) {
    const int stride = tocra::Pitch128(kWidth), s2 = tocra::Pitch128(kHalfWidth);
    const auto src = tocra_bench::TexturedPlane(kWidth, kHeight, stride);
    std::vector<uint8_t> dst(static_cast<size_t>(s2) * kHalfHeight);
    MultiThread_Init(4);
    for (auto _ : state) {
        DownScaleX4_Neon_MT(src.data(), dst.data(), kHeight, kWidth, stride, s2);
        benchmark::DoNotOptimize(dst.data());
    }
    MultiThread_destory();
}

void BM_cv_resize_area_down(benchmark::State& state) {
    const int stride = tocra::Pitch128(kWidth);
    auto plane = tocra_bench::TexturedPlane(kWidth, kHeight, stride);
    cv::Mat src(kHeight, kWidth, CV_8UC1, plane.data(), stride), dst;
    for (auto _ : state) {
        cv::resize(src, dst, cv::Size(kHalfWidth, kHalfHeight), 0, 0, cv::INTER_AREA);
        benchmark::DoNotOptimize(dst.data);
    }
}

void BM_MT_UpScale4X_NEON(benchmark::State& state) {
    const int s2 = tocra::Pitch128(kHalfWidth), stride = tocra::Pitch128(kWidth);
    const auto src = tocra_bench::TexturedPlane(kHalfWidth, kHalfHeight, s2);
    std::vector<uint8_t> dst(static_cast<size_t>(stride) * kHeight);
    MultiThread_Init(4);
    for (auto _ : state) {
        MT_UpScale4X_NEON(src.data(), kHalfHeight, kHalfWidth, s2, stride, dst.data());
        benchmark::DoNotOptimize(dst.data());
    }
    MultiThread_destory();
}

void BM_cv_resize_linear_up(benchmark::State& state) {
    const int s2 = tocra::Pitch128(kHalfWidth);
    auto plane = tocra_bench::TexturedPlane(kHalfWidth, kHalfHeight, s2);
    cv::Mat src(kHalfHeight, kHalfWidth, CV_8UC1, plane.data(), s2), dst;
    for (auto _ : state) {
        cv::resize(src, dst, cv::Size(kWidth, kHeight), 0, 0, cv::INTER_LINEAR);
        benchmark::DoNotOptimize(dst.data);
    }
}

BENCHMARK(BM_DownScaleX4_Neon_MT)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_cv_resize_area_down)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MT_UpScale4X_NEON)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_cv_resize_linear_up)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
