// Box filter of a weight map, radius 40, against cv::blur with the same
// (81 x 81) window and the same clipped-window mean at the borders
// (BORDER_CONSTANT would change the divisor; cv::blur's default reflects,
// which is the closest cost peer).
#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>
#include <vector>

#include "bench/bench_support.h"
#include "brimvel_tocra.h"
#include "frame/picture.h"

namespace {

constexpr int kRadius = 40;

void BM_BoxFiltering_neon(benchmark::State& state, int w, int h) {
    const int stride = tocra::Pitch128(w);
    const auto src = tocra_bench::TexturedPlane(w, h, stride);
    std::vector<uint8_t> dst(src.size());
    const int work = w * h * 4 + stride * (2 * kRadius + (h + 3) / 4) * 4;
    std::vector<uint32_t> area(work / 4 + 1);
    MultiThread_Init(4);
    for (auto _ : state) {
        BoxFiltering_neon(src.data(), dst.data(), w, stride, h, kRadius, reinterpret_cast<uint8_t*>(area.data()), work);
        benchmark::DoNotOptimize(dst.data());
    }
    MultiThread_destory();
}

void BM_cv_blur(benchmark::State& state, int w, int h) {
    const int stride = tocra::Pitch128(w);
    auto plane = tocra_bench::TexturedPlane(w, h, stride);
    cv::Mat src(h, w, CV_8UC1, plane.data(), stride), dst;
    for (auto _ : state) {
        cv::blur(src, dst, cv::Size(2 * kRadius + 1, 2 * kRadius + 1));
        benchmark::DoNotOptimize(dst.data);
    }
}

BENCHMARK_CAPTURE(BM_BoxFiltering_neon, half_2000x1500, tocra_bench::kHalfWidth, tocra_bench::kHalfHeight)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_cv_blur, half_2000x1500, tocra_bench::kHalfWidth, tocra_bench::kHalfHeight)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_BoxFiltering_neon, full_4000x3000, tocra_bench::kWidth, tocra_bench::kHeight)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_cv_blur, full_4000x3000, tocra_bench::kWidth, tocra_bench::kHeight)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
